#include "backend/services/profiles/profile_store.h"

#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/profiles/shipped_profiles.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view extension = ".conf";

std::optional<long long> parse_file_name(std::string_view name) {
  if (!name.ends_with(extension)) return std::nullopt;
  name.remove_suffix(extension.size());
  if (!is_number(name)) return std::nullopt;
  return parse_integer(name);
}

// What is wrong with a profile's document; empty when it is one.
std::string find_fault(const Value& document) {
  const Value& name = member(document, "name");
  if (!name.is_string() || trim(name.get_ref<const std::string&>()).empty()) return "a profile needs a \"name\"";
  for (const char* section : {"video", "audio", "subtitle"}) {
    const Value& value = member(document, section);
    if (!value.is_null() && !value.is_object()) return fmt::format("\"{}\" of a profile has to be a mapping", section);
  }
  for (const char* key : {"input", "output", "status", "profile", "label"})
    if (document.contains(key)) return fmt::format("a profile can't set \"{}\" of its streams", key);
  return {};
}

Value with_id(long long id, const Value& document) {
  Value record{{"id", id}};
  for (const auto& [key, value] : document.items())
    if (key != "id") record[key] = value;
  return record;
}

}  // namespace

/// A profile in memory; never changed once it is in the table.
struct ProfileStore::Stored {
  Stored(const std::string& path, Error* error_handler) : document(path, error_handler) {}
  JsonConf document;
  DocumentProfile description{document};
};

ProfileStore::ProfileStore(std::string directory) : directory_(std::move(directory)) {}

std::string ProfileStore::path(long long id) const {
  return join_path(directory_, std::to_string(id) + std::string(extension));
}

void ProfileStore::load() {
  if (!fs::exists(directory_)) install_shipped();
  for (const fs::directory_entry& entry : fs::directory_iterator(directory_)) load_file(entry.path().filename());
}

void ProfileStore::install_shipped() const {
  fs::create_directories(directory_);
  for (const ShippedProfile& profile : shipped_profiles())
    replace_file(join_path(directory_, profile.file_name), profile.text);
}

void ProfileStore::load_file(const std::string& name) {
  const auto id = parse_file_name(name);
  if (!id) return;
  const auto profile = std::make_shared<Stored>(join_path(directory_, name), this);
  // The id of a file that does not load is not given to another profile: its file would be overwritten.
  next_id_ = std::max(next_id_, *id + 1);
  if (!profile->document.load_json_conf()) return warning(fmt::format("{}: {}", name, get_error_msg()));
  const std::string fault = find_fault(profile->document.document());
  if (!fault.empty()) return warning(fmt::format("{}: {}", name, fault));
  profiles_[*id] = profile;
}

std::shared_ptr<ProfileStore::Stored> ProfileStore::find(long long id) {
  const auto found = profiles_.find(id);
  if (found != profiles_.end()) return found->second;
  set_error_msg(fmt::format("There is no profile {}", id));
  return nullptr;
}

std::shared_ptr<const ProfileDescription> ProfileStore::get_profile(long long id) {
  const std::shared_ptr<Stored> profile = find(id);
  if (!profile) return nullptr;
  return {profile, &profile->description};
}

Value ProfileStore::list() const {
  Value records = Value::array();
  for (const auto& [id, profile] : profiles_) records.push_back(with_id(id, profile->document.document()));
  return records;
}

Value ProfileStore::read(long long id) {
  const std::shared_ptr<Stored> profile = find(id);
  return profile ? with_id(id, profile->document.document()) : Value();
}

std::optional<long long> ProfileStore::add(const Value& form) {
  const long long id = next_id_;
  const auto profile = std::make_shared<Stored>(path(id), this);
  if (!profile->document.load_json_conf(form) || !store(id, profile)) return std::nullopt;
  next_id_ = id + 1;
  return id;
}

bool ProfileStore::change(long long id, const Value& form) {
  const std::shared_ptr<Stored> present = find(id);
  if (!present) return false;
  const auto changed = std::make_shared<Stored>(present->document.filename, this);
  for (const auto& [key, value] : present->document.document().items()) changed->document.set_json_conf(key, value);
  return changed->document.load_json_conf(form) && store(id, changed);
}

bool ProfileStore::store(long long id, const std::shared_ptr<Stored>& profile) {
  const std::string fault = find_fault(profile->document.document());
  if (!fault.empty()) {
    set_error_msg(fault);
    return false;
  }
  if (!profile->document.save_json_conf()) return false;
  profiles_[id] = profile;
  return true;
}

bool ProfileStore::remove(long long id) {
  const std::shared_ptr<Stored> profile = find(id);
  if (!profile) return false;
  std::error_code error;
  fs::remove(profile->document.filename, error);
  if (error) {
    set_error_msg(fmt::format("Failed to delete profile {}: {}", id, error.message()));
    return false;
  }
  profile->document.retire();
  profiles_.erase(id);
  return true;
}

}  // namespace weir
