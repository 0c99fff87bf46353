#include "backend/base/members.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"

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

std::vector<NumberedMember> numbered_members(const Value& mapping) {
  std::vector<NumberedMember> members;
  for (const auto& [key, value] : mapping.items())
    if (is_number(key)) members.push_back({key, &value});
  std::ranges::sort(members, [](const NumberedMember& left, const NumberedMember& right) {
    const int order = compare_numbers(left.key, right.key);
    return order != 0 ? order < 0 : left.value < right.value;  // the values lie in the order of the members
  });
  return members;
}

}  // namespace weir
