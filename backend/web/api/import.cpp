#include "backend/web/api/import.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/web/api/pending_changes.h"
#include "backend/web/masked_value.h"
#include "backend/web/schema/profile_form.h"
#include "backend/web/stream_form.h"

namespace weir {

namespace {

constexpr std::size_t max_findings = 500;
// New ones get the next id, which there has to be.
constexpr long long max_new_id = 999'999'999;

std::optional<long long> read_id(const Value& document) {
  const Value& id = member(document, "id");
  if (!id.is_number_integer() || id < 0 || id > max_stream_id) return std::nullopt;
  return id.get<long long>();
}

std::string describe_id(const Value& document) {
  return fmt::format("{} is not an id (0 to {})", to_text(member(document, "id")), max_new_id);
}

std::string join(const std::string& key, const std::string& below) {
  return key.empty() || below.empty() ? key + below : key + "." + below;
}

Value without(Value document, std::initializer_list<const char*> names) {
  for (const char* name : names) document.erase(name);
  return document;
}

// What an imported document makes, or why it is refused.
struct PreparedStream {
  Value document;
  FormFindings findings;
};

Async<PreparedStream> prepare(long long id, Value document, std::shared_ptr<const StreamConfig> present,
                              std::shared_ptr<const ProfileDraft> profile) {
  PreparedStream prepared;
  try {
    prepared.document = co_await prepare_import(id, std::move(document), std::move(present), std::move(profile));
  } catch (const FormError& refusal) {
    prepared.findings = refusal.findings();
  } catch (const HttpError& refusal) {
    prepared.findings = {as_finding(refusal.what())};
  }
  co_return prepared;
}

}  // namespace

void Import::refuse(std::string key, std::string message) {
  if (findings_.size() < max_findings) findings_.push_back({std::move(key), std::move(message)});
}

void Import::refuse(const std::string& key, const FormFindings& findings) {
  for (const Finding& finding : findings) refuse(join(key, finding.key), finding.message);
}

Async<> Import::check(std::shared_ptr<Value> content) {
  check_outline(*content);
  if (!findings_.empty()) co_return;
  std::size_t position = 0;
  for (Value& document : (*content)["profiles"]) {
    check_profile(fmt::format("profiles.{}", position++), std::move(document));
    co_await yield_to_others();
  }
  check_profile_names();
  position = 0;
  for (Value& document : (*content)["streams"]) {
    co_await check_stream(fmt::format("streams.{}", position++), std::move(document));
    document = nullptr;
  }
  if (replaces_) {
    find_removed();
  } else {
    co_await check_users_of_profiles();
  }
  check_webhooks(member(*content, "settings"));
}

void Import::check_outline(const Value& content) {
  if (member(content, "format") != format)
    refuse("format", fmt::format("not {}, the format of this version's exports", format));
  for (const char* list : {"profiles", "streams"}) {
    const Value& records = member(content, list);
    if (!records.is_array() && (!records.is_null() || replaces_)) refuse(list, "not a list");
  }
  constexpr std::array known{"format", "version", "time", "profiles", "streams", "settings"};
  for (const auto& [name, value] : content.items())
    if (std::ranges::find(known, name) == known.end()) refuse(name, "not a part of an export");
}

void Import::check_profile(const std::string& key, Value document) {
  const auto id = read_id(document);
  if (!id || (*id > max_new_id && !to_.profiles.stored(*id))) return refuse(key + ".id", describe_id(document));
  if (profile_changes_.contains(*id)) return refuse(key + ".id", fmt::format("profile {} is there twice", *id));
  const Value before = to_.profiles.read(*id);
  profile_changes_[*id] = before.is_null() ? Kind::added : Kind::changed;
  std::shared_ptr<ProfileDraft> draft;
  try {
    document = without(std::move(document), {"id", "draft"});
    JsonConf stored;
    if (!before.is_null()) stored.replace_document(before);
    restore_secrets(document, stored);
    FormFindings warnings;
    draft = to_.profiles.draft_import(*id, prepare_profile_form(Value(), document, warnings));
    if (!draft) refuse(key, {as_finding(to_.profiles.get_error_msg())});
  } catch (const FormError& refusal) {
    refuse(key, refusal.findings());
  }
  if (!draft) {
    refused_profiles_.insert(*id);
    return;
  }
  const bool is_same =
      !before.is_null() && list_changed_keys(without(before, {"id", "draft"}), draft->content()).empty();
  if (is_same)
    profile_changes_[*id] = Kind::unchanged;
  else
    profiles_[*id] = std::move(draft);
}

// Of the profiles as they are going to be.
void Import::check_profile_names() {
  std::map<std::string, long long> names;
  const auto add = [&](long long id, const std::string& name) {
    const auto [other, is_new] = names.emplace(name, id);
    if (!is_new && other->second != id && (profiles_.contains(id) || profiles_.contains(other->second)))
      refuse("profiles", fmt::format("profiles {} and {} have the name \"{}\"", other->second, id, name));
  };
  for (const auto& [id, draft] : profiles_) add(id, draft->name());
  for (const Value& record : to_.profiles.list()) {
    const auto id = record.at("id").get<long long>();
    if (profiles_.contains(id) || (replaces_ && !profile_changes_.contains(id))) continue;
    add(id, to_.profiles.stored(id)->name());
    if (const auto draft = to_.profiles.kept_draft(id)) add(id, draft->name());
  }
}

// The imported profile that a stream uses; null where it keeps the one that is there. One that is refused is a finding
// already: the rest of the document is looked at without it.
std::shared_ptr<const ProfileDraft> Import::find_profile(Value& document) const {
  const Value profile = member(document, "profile");
  if (!is_set(profile)) return nullptr;
  const std::string digits = to_text(profile);
  const auto id = is_number(digits) ? parse_integer(digits) : std::nullopt;
  if (!id) return nullptr;
  if (const auto found = profiles_.find(*id); found != profiles_.end()) return found->second;
  if (refused_profiles_.contains(*id)) document.erase("profile");
  if (replaces_ && !profile_changes_.contains(*id))
    throw FormError({{"profile", fmt::format("the import has no profile {}", digits)}});
  return nullptr;
}

Async<> Import::check_stream(std::string key, Value document) {
  const auto id = read_id(document);
  if (!id || (*id > max_new_id && !to_.manager.streams.contains(*id))) {
    refuse(key + ".id", describe_id(document));
    co_return;
  }
  const auto present = to_.manager.streams.find(*id);
  const std::shared_ptr<StreamConfig> conf = present == to_.manager.streams.end() ? nullptr : present->second->conf;
  if (!stream_changes_.emplace(*id, conf ? Kind::changed : Kind::added).second) {
    refuse(key + ".id", fmt::format("stream {} is there twice", *id));
    co_return;
  }
  document = without(std::move(document), {"id", "status"});
  std::shared_ptr<const ProfileDraft> profile;
  try {
    profile = find_profile(document);
  } catch (const FormError& refusal) {
    refuse(key, refusal.findings());
    document.erase("profile");
  }
  PreparedStream prepared = co_await prepare(*id, std::move(document), conf, profile);
  refuse(key, prepared.findings);
  if (prepared.findings.empty()) compare(*id, conf.get(), std::move(prepared.document));
}

void Import::compare(long long id, const StreamConfig* present, Value document) {
  document.erase("status");
  if (present && list_changed_keys(without(present->document(), {"status"}), document).empty())
    stream_changes_[id] = Kind::unchanged;
  else
    streams_[id] = std::move(document);
}

// Streams that the import does not name get what it makes of their profiles, too.
Async<> Import::check_users_of_profiles() {
  for (const std::shared_ptr<Stream>& stream : to_.manager.all_streams()) {
    Value document = without(stream->conf->document(), {"status"});
    if (stream_changes_.contains(stream->id) || !find_profile(document)) continue;
    FormFindings earlier = std::exchange(findings_, {});
    co_await check_stream("", std::move(document));
    for (const Finding& finding : std::exchange(findings_, std::move(earlier)))
      refuse(finding.key, fmt::format("stream {}: {}", stream->id, finding.message));
  }
}

void Import::find_removed() {
  for (const auto& [id, stream] : to_.manager.streams) {
    if (!stream_changes_.emplace(id, Kind::removed).second || !is_active(stream->get_status())) continue;
    refuse("streams", fmt::format("stream {}: the import removes it, and it is active: stop it first", id));
  }
  for (const Value& record : to_.profiles.list())
    profile_changes_.emplace(record.at("id").get<long long>(), Kind::removed);
}

void Import::check_webhooks(const Value& settings) {
  webhooks_ = to_.webhooks.stored();
  const Value& list = member(settings, "webhooks");
  if (list.is_null()) return;
  if (!list.is_array()) return refuse("settings.webhooks", "not a list");
  const Webhooks::Stored before = std::exchange(webhooks_, replaces_ ? Webhooks::Stored() : webhooks_);
  std::size_t position = 0;
  for (const Value& record : list) {
    const std::string key = fmt::format("settings.webhooks.{}", position++);
    const std::string id = to_text(member(record, "id"));
    const auto number = is_number(id) ? parse_integer(id) : std::nullopt;
    if (!number || (*number > max_new_id && !before.contains(id)) || webhook_changes_.contains(id)) {
      refuse(key + ".id", webhook_changes_.contains(id) ? "there twice" : describe_id(record));
      continue;
    }
    const auto present = before.find(id);
    Value form = without(record, {"id"});
    try {
      JsonConf stored;
      if (present != before.end()) stored.replace_document(to_form(present->second, true));
      restore_secrets(form, stored);
      webhooks_[id] = read_webhook(form);
      const bool is_same = present != before.end() && to_form(present->second, true) == to_form(webhooks_[id], true);
      webhook_changes_[id] = is_same ? Kind::unchanged : present == before.end() ? Kind::added : Kind::changed;
    } catch (const FormError& refusal) {
      refuse(key, refusal.findings());
    } catch (const ValueError& refusal) {
      refuse(key, {as_finding(refusal.what())});
    }
  }
  for (const auto& [id, webhook] : before)
    if (!webhooks_.contains(id)) webhook_changes_[id] = Kind::removed;
  if (webhooks_.size() > Webhooks::max_webhooks)
    refuse("settings.webhooks", fmt::format("there would be more than {}", Webhooks::max_webhooks));
}

Value Import::describe() const {
  const auto list = [](const auto& changes) {
    constexpr std::array names{"added", "changed", "removed", "unchanged"};
    Value lists;
    for (const char* name : names) lists[name] = Value::array();
    for (const auto& [id, kind] : changes) lists[names.at(static_cast<std::size_t>(kind))].push_back(id);
    return lists;
  };
  return {{"ok", true},
          {"profiles", list(profile_changes_)},
          {"streams", list(stream_changes_)},
          {"webhooks", list(webhook_changes_)}};
}

}  // namespace weir
