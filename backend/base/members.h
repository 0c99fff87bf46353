#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"

namespace weir {

/// Whether a field counts as given: not null, false, zero, nor an empty text, list or mapping.
bool is_set(const Value& value);

/// An empty mapping with room for that many members: one that grows copies its keys.
Value make_mapping(std::size_t members);

/// The member of a mapping; null when it is absent or `mapping` is none.
const Value& member(const Value& mapping, std::string_view name);

struct NumberedMember {
  std::string key;
  const Value* value;
};

/// The members of a mapping whose keys are numbers, ascending; equal ones ("7" and "07") as they stand.
std::vector<NumberedMember> numbered_members(const Value& mapping);

}  // namespace weir
