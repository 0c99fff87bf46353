#include "backend/base/members.h"

#include <nlohmann/json.hpp>
#include <string>

namespace weir {

bool is_set(const Value& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>() != 0;
  if (value.is_string()) return !value.get_ref<const std::string&>().empty();
  return !value.empty();
}

Value make_mapping(std::size_t members) {
  Value mapping = Value::object();
  mapping.get_ref<Value::object_t&>().reserve(members);
  return mapping;
}

const Value& member(const Value& mapping, std::string_view name) {
  static const Value null;
  if (!mapping.is_object()) return null;
  const auto found = mapping.find(name);
  return found == mapping.end() ? null : *found;
}

}  // namespace weir
