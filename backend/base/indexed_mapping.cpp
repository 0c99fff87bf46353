#include "backend/base/indexed_mapping.h"

#include <algorithm>
#include <utility>

namespace weir {

namespace {

using Members = Value::object_t::Container;

constexpr std::size_t small_mapping = 16;

// The vector would copy the values, as their keys are constant.
void grow(Value::object_t& members) {
  Value::object_t larger;
  larger.reserve(members.size() + members.size() / 2 + 1);
  for (auto& [name, value] : members) static_cast<Members&>(larger).emplace_back(name, std::move(value));
  members = std::move(larger);
}

}  // namespace

Value* IndexedMapping::look_through(std::string_view name) const {
  const auto found =
      std::ranges::find(*members_, name, [](const auto& entry) -> std::string_view { return entry.first; });
  return found == members_->end() ? nullptr : &found->second;
}

Value* IndexedMapping::find(std::string_view name) {
  if (members_->size() <= small_mapping || !std::exchange(asked_, true)) return look_through(name);
  if (positions_.empty())
    for (std::size_t i = 0; i < members_->size(); ++i)
      positions_.emplace(members_->begin()[static_cast<std::ptrdiff_t>(i)].first, i);
  const auto found = positions_.find(std::string(name));
  return found == positions_.end() ? nullptr : &members_->begin()[static_cast<std::ptrdiff_t>(found->second)].second;
}

Value& IndexedMapping::operator[](std::string_view name) {
  if (Value* present = find(name)) return *present;
  if (members_->size() == members_->capacity()) grow(*members_);
  if (!positions_.empty()) positions_.emplace(name, members_->size());
  return static_cast<Members&>(*members_).emplace_back(std::string(name), nullptr).second;
}

}  // namespace weir
