#pragma once

#include <cstddef>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// Whether a field counts as given: not null, false, zero, nor an empty text, list or mapping.
bool is_set(const Value& value);

/// An empty mapping with room for that many members: one that grows copies its keys.
Value make_mapping(std::size_t members);

/// The member of a mapping; null when it is absent or `mapping` is none.
const Value& member(const Value& mapping, std::string_view name);

}  // namespace weir
