#include "backend/web/api/pending_changes.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "backend/base/bounded_json.h"
#include "backend/base/indexed_mapping.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

constexpr std::size_t max_keys = 50;

// What no cycle is made of: it counts at once.
constexpr std::array other_members{"id", "status", "label", "tags", "profile", "access"};

bool is_default(const Value* value) {
  return !value || value->is_null() || (value->is_string() && value->get_ref<const std::string&>().empty());
}

/// Collects the keys of what differs.
class Comparison {
 public:
  Comparison(std::size_t max_depth, std::vector<std::string>& keys) : max_depth_(max_depth), keys_(keys) {}

  void compare(Value& before, Value& after, const std::string& prefix, std::size_t depth) {
    IndexedMapping old_members(before);
    IndexedMapping new_members(after);
    for (const auto& [name, value] : before.items())
      compare_member(&value, new_members.find(name), prefix + name, depth);
    for (const auto& [name, value] : after.items())
      if (!old_members.find(name)) compare_member(nullptr, &value, prefix + name, depth);
  }

 private:
  void compare_member(Value* before, Value* after, const std::string& key, std::size_t depth) {
    if (is_default(before) && is_default(after)) return;
    Value none = Value::object();
    const auto is_mapping_or_none = [](const Value* value) { return is_default(value) || value->is_object(); };
    if (!is_mapping_or_none(before) || !is_mapping_or_none(after)) {
      if (!before || !after || *before != *after) keys_.push_back(key);
      return;
    }
    const std::size_t count = keys_.size();
    compare(is_default(before) ? none : *before, is_default(after) ? none : *after, key + ".", depth + 1);
    const bool is_too_deep = depth >= max_depth_ && keys_.size() > count;
    if (!is_too_deep) return;
    keys_.resize(count);
    keys_.push_back(key);
  }

  std::size_t max_depth_;
  std::vector<std::string>& keys_;
};

std::vector<std::string> compare(Value& before, Value& after, std::size_t max_depth) {
  std::vector<std::string> keys;
  Comparison(max_depth, keys).compare(before, after, "", 1);
  return keys;
}

}  // namespace

std::vector<std::string> list_changed_keys(Value before, Value after) {
  std::vector<std::string> keys = compare(before, after, max_nesting);
  return keys.size() <= max_keys ? keys : compare(before, after, 1);
}

std::vector<std::string> list_pending_keys(Value launched, Value document) {
  for (const char* name : other_members) {
    launched.erase(name);
    document.erase(name);
  }
  return list_changed_keys(std::move(launched), std::move(document));
}

// Null when the document was not changed since the launch of the transcoder that runs.
PendingChanges::Kept* PendingChanges::find(const Stream& stream) {
  const auto kept = kept_.find(stream.id);
  if (kept == kept_.end()) return nullptr;
  if (stream.proc && kept->second.cycle == stream.cycle.number) return &kept->second;
  kept_.erase(kept);
  return nullptr;
}

void PendingChanges::before_change(const Stream& stream, const Value& document) {
  if (stream.proc && !find(stream)) kept_[stream.id] = {.cycle = stream.cycle.number, .document = to_json(document)};
}

const std::string& PendingChanges::list(const Stream& stream) {
  static const std::string none = "[]";
  Kept* kept = find(stream);
  if (!kept) return none;
  if (kept->revision != stream.conf->revision()) {
    kept->keys = to_json(list_pending_keys(Value::parse(kept->document), stream.conf->document()));
    kept->revision = stream.conf->revision();
  }
  return kept->keys;
}

RecordMember PendingChanges::make_member() {
  return {"pending", [this](std::string& json, const Stream& stream) { json += list(stream); },
          [this](long long id) { kept_.erase(id); }};
}

}  // namespace weir
