#include "backend/services/profiles/profile_store.h"

#include <fmt/core.h>

#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/base/indexed_mapping.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/profiles/shipped_profiles.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view extension = ".conf";
constexpr std::string_view draft_extension = ".draft";

// Nothing for the names of other files, and for ids whose next is none.
std::optional<long long> parse_file_name(std::string_view name) {
  if (!name.ends_with(extension)) return std::nullopt;
  name.remove_suffix(extension.size());
  const auto id = is_number(name) ? parse_integer(name) : std::nullopt;
  return id < std::numeric_limits<long long>::max() ? id : std::nullopt;
}

// On the way to what stays the stream's own there can only be mappings.
std::string find_non_mapping(const JsonConf& profile) {
  for (const std::string_view key : kept_from_profile) {
    for (std::size_t dot = key.find('.'); dot != std::string_view::npos; dot = key.find('.', dot + 1)) {
      const Value& value = profile.get_json_conf(key.substr(0, dot));
      if (!value.is_null() && !value.is_object())
        return fmt::format("{}: {} is not a mapping", key.substr(0, dot), to_text(value));
    }
  }
  return {};
}

// Why the document is no profile; empty when it is one.
std::string find_fault(const JsonConf& profile) {
  const Value& name = profile.get_json_conf("name");
  if (!name.is_string() || trim(name.get_ref<const std::string&>()).empty()) return "A profile needs a \"name\"";
  for (const char* key : {"input", "output", "status", "profile", "label"})
    if (profile.document().contains(key)) return fmt::format("A profile can't set \"{}\" of its streams", key);
  std::string non_mapping = find_non_mapping(profile);
  if (!non_mapping.empty()) return non_mapping;
  try {
    JsonConf stream;
    DocumentProfile(profile).copy_to(stream, {"id"});
    return {};
  } catch (const ValueError& failure) {
    return fmt::format("Invalid profile: {}", failure.what());
  }
}

Value with_id(long long id, const Value& document) {
  Value record = make_mapping(document.size() + 1);
  IndexedMapping members(record);
  members["id"] = id;
  for (const auto& [key, value] : document.items())
    if (key != "id" && key != "draft") members[key] = value;
  return record;
}

}  // namespace

/// A profile in memory; never changed once it is in the table.
class ProfileStore::Stored : public ProfileDraft {
 public:
  Stored(long long id, const std::string& path, Error* error_handler) : document(path, error_handler), id_(id) {}
  long long id() const override { return id_; }
  std::string name() const override { return std::string(trim(to_text(document.get_json_conf("name")))); }
  const Value& content() const override { return document.document(); }
  const DocumentProfile& description() const override { return description_; }

  JsonConf document;

 private:
  const long long id_;
  const DocumentProfile description_{document};
};

ProfileStore::ProfileStore(std::string directory) : directory_(std::move(directory)) {}

std::string ProfileStore::path(long long id) const {
  const auto stored = profiles_.find(id);
  if (stored != profiles_.end()) return stored->second->document.filename;
  return join_path(directory_, std::to_string(id) + std::string(extension));
}

std::string ProfileStore::draft_path(long long id) const {
  return join_path(directory_, std::to_string(id) + std::string(draft_extension));
}

void ProfileStore::load() {
  if (!fs::exists(directory_)) install_shipped();
  for (const std::string& name : names_in(directory_)) load_file(name);
  for (const auto& [id, profile] : profiles_) load_draft(id);
}

void ProfileStore::install_shipped() const {
  make_directory(directory_);
  for (const ShippedProfile& profile : shipped_profiles())
    replace_file(join_path(directory_, profile.file_name), profile.text);
}

void ProfileStore::load_file(const std::string& name) {
  const auto id = parse_file_name(name);
  if (!id) return;
  const auto profile = std::make_shared<Stored>(*id, join_path(directory_, name), this);
  // The id of a file that does not load is not given to another profile: its file would be overwritten.
  next_id_ = std::max(next_id_, *id + 1);
  if (!profile->document.load_json_conf()) return warning(fmt::format("{}: {}", name, get_error_msg()));
  const std::string fault = find_fault(profile->document);
  if (!fault.empty()) return warning(fmt::format("{}: {}", name, fault));
  profiles_[*id] = profile;
}

void ProfileStore::load_draft(long long id) {
  const std::string file = draft_path(id);
  if (!fs::exists(file)) return;
  const auto draft = std::make_shared<Stored>(id, file, this);
  if (!draft->document.load_json_conf()) return warning(fmt::format("{}: {}", file, get_error_msg()));
  const std::string fault = find_fault(draft->document);
  if (!fault.empty()) return warning(fmt::format("{}: {}", file, fault));
  drafts_[id] = draft;
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
  return {profile, &profile->description()};
}

Value ProfileStore::list() const {
  Value records = Value::array();
  for (const auto& [id, profile] : profiles_) records.push_back(make_record(id, *profile));
  return records;
}

Value ProfileStore::read(long long id) {
  const std::shared_ptr<Stored> profile = find(id);
  return profile ? make_record(id, *profile) : Value();
}

Value ProfileStore::make_record(long long id, const Stored& profile) const {
  Value record = with_id(id, profile.document.document());
  const auto draft = drafts_.find(id);
  if (draft != drafts_.end()) record["draft"] = draft->second->document.document();
  return record;
}

std::shared_ptr<ProfileDraft> ProfileStore::draft_new(const Value& form) {
  const auto profile = std::make_shared<Stored>(next_id_, path(next_id_), this);
  return apply(*profile, form) && !refuse_taken_name(*profile) ? profile : nullptr;
}

std::shared_ptr<ProfileDraft> ProfileStore::draft_change(long long id, const Value& form) {
  std::shared_ptr<Stored> present = find(id);
  if (!present) return nullptr;
  if (const auto draft = drafts_.find(id); draft != drafts_.end()) present = draft->second;
  const auto changed = std::make_shared<Stored>(id, present->document.filename, this);
  changed->document.replace_document(present->document.document());
  if (!apply(*changed, form)) return nullptr;
  const bool is_renamed = changed->name() != present->name();
  return is_renamed && refuse_taken_name(*changed) ? nullptr : changed;
}

std::shared_ptr<ProfileDraft> ProfileStore::draft_import(long long id, const Value& document) {
  const auto profile = std::make_shared<Stored>(id, path(id), this);
  return apply(*profile, document) ? profile : nullptr;
}

bool ProfileStore::refuse_taken_name(const Stored& profile) {
  const std::string name = profile.name();
  for (const auto* stored : {&profiles_, &drafts_}) {
    for (const auto& [id, other] : *stored) {
      if (id == profile.id() || other->name() != name) continue;
      set_error_msg(fmt::format("name: \"{}\" is the name of profile {}; choose another one", name, id));
      return true;
    }
  }
  return false;
}

std::shared_ptr<ProfileDraft> ProfileStore::kept_draft(long long id) {
  const auto draft = drafts_.find(id);
  return draft == drafts_.end() ? nullptr : draft->second;
}

std::shared_ptr<ProfileDraft> ProfileStore::stored(long long id) { return find(id); }

// A copy of the draft that is saved there; null when it can't be.
std::shared_ptr<ProfileStore::Stored> ProfileStore::write(const ProfileDraft& draft, const std::string& to) {
  const auto written = std::make_shared<Stored>(draft.id(), to, this);
  written->document.replace_document(dynamic_cast<const Stored&>(draft).document.document());
  return written->document.save_json_conf() ? written : nullptr;
}

bool ProfileStore::keep(std::shared_ptr<ProfileDraft> draft) {
  const auto kept = write(*draft, draft_path(draft->id()));
  if (kept) drafts_[draft->id()] = kept;
  return kept != nullptr;
}

bool ProfileStore::drop_draft(long long id) {
  std::error_code error;
  fs::remove(draft_path(id), error);
  if (error) {
    set_error_msg(fmt::format("Failed to delete the draft of profile {}: {}", id, error.message()));
    return false;
  }
  drafts_.erase(id);
  return true;
}

bool ProfileStore::apply(Stored& profile, const Value& form) {
  if (!profile.document.load_json_conf(form)) return false;
  std::string fault = find_fault(profile.document);
  try {
    check_bounds(profile.document.document());
  } catch (const ValueError& failure) {
    fault = fmt::format("The profile would be {}", failure.what());
  }
  if (!fault.empty()) set_error_msg(fault);
  return fault.empty();
}

bool ProfileStore::store(std::shared_ptr<ProfileDraft> draft) {
  const auto profile = write(*draft, path(draft->id()));
  if (!profile) return false;
  next_id_ = std::max(next_id_, profile->id() + 1);
  profiles_[profile->id()] = profile;
  return true;
}

bool ProfileStore::remove(long long id) {
  const std::shared_ptr<Stored> profile = find(id);
  if (!profile || !drop_draft(id)) return false;
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
