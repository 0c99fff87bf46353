#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unordered_map>

#include "backend/base/value.h"

namespace weir {

/// Reads and fills one mapping in time linear in its members: a mapping looks through all its members for each name,
/// and copies them all when it grows. The mapping outlives this and is changed through nothing else meanwhile.
class IndexedMapping {
 public:
  explicit IndexedMapping(Value& mapping) : members_(mapping.get_ptr<Value::object_t*>()) {}

  /// The member; null when it is absent. Holds until a member is added.
  Value* find(std::string_view name);
  /// The member, added at the end as null when it is absent. Holds until the next one is added.
  Value& operator[](std::string_view name);

 private:
  Value* look_through(std::string_view name) const;

  Value::object_t* members_;
  bool asked_ = false;
  std::unordered_map<std::string, std::size_t> positions_;  ///< from the second look-up in a large mapping on
};

}  // namespace weir
