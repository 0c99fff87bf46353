#include "backend/web/profile_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/base/log.h"
#include "backend/base/mask_passwords.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/collaborators/journal.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/web/api/pending_changes.h"
#include "backend/web/form_preview.h"
#include "backend/web/masked_value.h"
#include "backend/web/schema/form_findings.h"
#include "backend/web/schema/profile_form.h"
#include "backend/web/stream_form.h"
#include "backend/web/sync.h"

namespace weir {

namespace {

constexpr double max_interval = 3600;
constexpr std::size_t max_findings = 50;

void refuse_kept_members(const Value& form) {
  for (const auto& [key, value] : form.items()) {
    const std::string first = key.substr(0, key.find('.'));
    if (first == "id" || first == "draft" || first == "users")
      throw FormError({{key, fmt::format("\"{}\" is kept by the server", first)}});
  }
}

void tell(JournalKind kind, long long profile, std::string by, std::string_view what = {}) {
  journal().record({.kind = kind, .by = std::move(by), .text = fmt::format("profile {}{}", profile, what)});
}

// The profile as its next edit finds it: with what was not applied yet.
Value document_to_edit(const Value& record) { return record.contains("draft") ? record.at("draft") : record; }

// The keys in which the draft differs from the profile.
Value list_draft_keys(Value record) {
  if (!record.contains("draft")) return Value::array();
  Value draft = record.at("draft");
  for (const char* name : {"id", "draft"}) record.erase(name);
  return list_changed_keys(std::move(record), std::move(draft));
}

Value shown_to(Role role, Value value) {
  if (role < Role::operator_) mask_value(value);
  return value;
}

// "06" names profile 6, too.
bool uses(const Value& document, const std::string& profile_id) {
  const Value& profile = member(document, "profile");
  if (!profile.is_string()) return false;
  const auto& digits = profile.get_ref<const std::string&>();
  return is_number(digits) && compare_numbers(digits, profile_id) == 0;
}

// Throws `std::system_error` when the file can't be read.
bool file_uses(const std::string& file, const std::string& profile_id) {
  try {
    return uses(parse_json(read_file(stream_file_path(file), max_document_bytes)), profile_id);
  } catch (const ValueError&) {
    return false;
  }
}

}  // namespace

/// How an applied profile reaches its streams.
struct ProfileRoutes::Reload {
  bool restarts = false;  ///< those that run and differ
  double interval = 3;    ///< seconds between two restarts
};

ProfileRoutes::Reload ProfileRoutes::read_reload(const Request& request) {
  const Value form = request.body.empty() ? Value::object() : read_form(request);
  Reload reload;
  if (const Value& restart = member(form, "restart"); !restart.is_null()) {
    if (!restart.is_boolean()) throw HttpError(400, "\"restart\" must be true or false");
    reload.restarts = restart.get<bool>();
  }
  if (const Value& interval = member(form, "interval"); !interval.is_null()) {
    reload.interval = interval.is_number() ? interval.get<double>() : -1;
    if (reload.interval < 0 || reload.interval > max_interval)
      throw HttpError(400, fmt::format("\"interval\" must be a number of seconds (0 to {})", max_interval));
  }
  return reload;
}

void ProfileRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  // What waits gets values: the request is read before.
  router.add("GET", "/api/profiles", [this](const Request& r, Parameters) { return list(r.identity.role); });
  router.add("POST", "/api/profiles", [this](const Request& r, Parameters) {
    return asks_for_preview(r) ? preview_new(read_form(r)) : add(read_form(r), r.by());
  });
  router.add("GET", "/api/profiles/{id}",
             [this](const Request& r, Parameters p) { return read(p[0], r.identity.role); });
  router.add("PATCH", "/api/profiles/{id}", [this](const Request& r, Parameters p) {
    return asks_for_preview(r) ? preview_change(p[0], read_form(r)) : change(p[0], read_form(r), r.by());
  });
  router.add("POST", "/api/profiles/{id}/apply",
             [this](const Request& r, Parameters p) { return apply(p[0], read_reload(r), r.by()); });
  router.add("DELETE", "/api/profiles/{id}/draft",
             [this](const Request& r, Parameters p) { return drop_draft(p[0], r.by()); });
  router.add("DELETE", "/api/profiles/{id}", [this](const Request& r, Parameters p) { return remove(p[0], r.by()); });
}

long long ProfileRoutes::find(const std::string& id) {
  const auto number = is_number(id) ? parse_integer(id) : std::nullopt;
  if (!number) throw HttpError(404, fmt::format("There is no profile {}", id));
  if (!profiles_.get_profile(*number)) throw HttpError(404, profiles_.get_error_msg());
  return *number;
}

std::vector<std::shared_ptr<Stream>> ProfileRoutes::users_of(long long id) const {
  std::vector<std::shared_ptr<Stream>> users;
  std::ranges::copy_if(
      manager_.all_streams(), std::back_inserter(users),
      [text = std::to_string(id)](const auto& stream) { return uses(stream->conf->document(), text); });
  return users;
}

// A file that can't be read now may name any profile.
Async<> ProfileRoutes::refuse_used(long long id) {
  for (const std::string& file : manager_.missing_files()) {
    co_await yield_to_others();
    try {
      if (file_uses(file, std::to_string(id)))
        throw HttpError(409, fmt::format("Profile {} is used by {}, which is not loaded", id, file));
    } catch (const std::system_error& failure) {
      if (failure.code() != std::errc::no_such_file_or_directory)
        throw HttpError(409, fmt::format("Profile {} may be used by a stream: {}", id, failure.what()));
    }
  }
  const auto users = users_of(id);
  if (!users.empty()) throw HttpError(409, fmt::format("Profile {} is used by stream {}", id, users.front()->id));
}

Value ProfileRoutes::describe(Value record) const {
  Value users = Value::array();
  for (const std::shared_ptr<Stream>& stream : users_of(record.at("id").get<long long>())) users.push_back(stream->id);
  record["users"] = std::move(users);
  return record;
}

Async<Response> ProfileRoutes::list(Role role) {
  Value list = Value::array();
  for (Value& record : profiles_.list()) {
    list.push_back(describe(std::move(record)));
    co_await yield_to_others();
  }
  co_return json_response(shown_to(role, std::move(list)));
}

Async<Response> ProfileRoutes::read(std::string id, Role role) {
  co_return json_response(shown_to(role, describe(profiles_.read(find(id)))));
}

std::shared_ptr<ProfileDraft> ProfileRoutes::accept(std::shared_ptr<ProfileDraft> draft) const {
  if (!draft) throw FormError({as_finding(profiles_.get_error_msg())});
  return draft;
}

std::shared_ptr<ProfileDraft> ProfileRoutes::make_new(const Value& form, FormFindings& warnings) const {
  refuse_kept_members(form);
  return accept(profiles_.draft_new(prepare_profile_form(Value(), form, warnings)));
}

std::shared_ptr<ProfileDraft> ProfileRoutes::make_changed(long long id, const Value& form,
                                                          FormFindings& warnings) const {
  refuse_kept_members(form);
  const Value checked = prepare_profile_form(document_to_edit(profiles_.read(id)), form, warnings);
  return accept(profiles_.draft_change(id, checked));
}

Async<Response> ProfileRoutes::preview_new(Value form) {
  const auto guard = co_await changes_.acquire();
  FormFindings warnings;
  try {
    make_new(form, warnings);
  } catch (const FormError& refusal) {
    co_return preview_response(refusal);
  }
  co_return preview_response(warnings);
}

// What would keep the draft from being applied is no fault of it yet.
Async<Response> ProfileRoutes::preview_change(std::string id, Value form) {
  const auto guard = co_await changes_.acquire();
  const long long number = find(id);
  FormFindings warnings;
  std::shared_ptr<ProfileDraft> draft;
  try {
    draft = make_changed(number, form, warnings);
  } catch (const FormError& refusal) {
    co_return preview_response(refusal);
  }
  try {
    co_await try_on_streams(draft);
  } catch (const FormError& refusal) {
    warnings.insert(warnings.end(), refusal.findings().begin(), refusal.findings().end());
  }
  co_return preview_response(warnings);
}

Async<Response> ProfileRoutes::add(Value form, std::string by) {
  const auto guard = co_await changes_.acquire();
  FormFindings warnings;
  const std::shared_ptr<ProfileDraft> draft = make_new(form, warnings);
  try {
    co_await store(draft);
  } catch (const std::system_error& failure) {
    // A client that tries again must not add it twice.
    profiles_.remove(draft->id());
    throw HttpError(500, fmt::format("The profile can't be saved: {}", failure.what()));
  }
  tell(JournalKind::added, draft->id(), std::move(by));
  Value answer{{"id", draft->id()}};
  if (!warnings.empty()) answer["warnings"] = to_json_value(warnings);
  co_return json_response(answer, 201);
}

Async<Response> ProfileRoutes::change(std::string id, Value form, std::string by) {
  const auto guard = co_await changes_.acquire();
  const long long number = find(id);
  FormFindings warnings;
  const std::shared_ptr<ProfileDraft> draft = make_changed(number, form, warnings);
  if (!profiles_.keep(draft)) throw HttpError(500, profiles_.get_error_msg());
  co_await sync_file(profiles_.draft_path(number));
  tell(JournalKind::changed, number, std::move(by), " (draft)");
  Value answer{{"ok", true}, {"pending", list_draft_keys(profiles_.read(number))}};
  if (!warnings.empty()) answer["warnings"] = to_json_value(warnings);
  co_return json_response(answer);
}

Async<Response> ProfileRoutes::drop_draft(std::string id, std::string by) {
  const auto guard = co_await changes_.acquire();
  const long long number = find(id);
  if (!profiles_.kept_draft(number)) throw HttpError(404, fmt::format("Profile {} has no draft", number));
  if (!profiles_.drop_draft(number)) throw HttpError(500, profiles_.get_error_msg());
  tell(JournalKind::deleted, number, std::move(by), " (draft)");
  co_await sync_or_log(std::filesystem::path(profiles_.draft_path(number)).parent_path());
  co_return empty_response();
}

Async<Response> ProfileRoutes::apply(std::string id, Reload reload, std::string by) {
  const long long number = find(id);
  co_await publish(number, by);
  Value results = Value::array();
  std::vector<Value> restarts;
  for (const std::shared_ptr<Stream>& stream : users_of(number)) {
    Value result = co_await reload_stream(stream, by);
    if (!member(result, "pending").empty()) restarts.emplace_back(stream->id);
    results.push_back(std::move(result));
  }
  if (reload.restarts && !restarts.empty())
    co_await manager_.batch_restart_streams(std::move(restarts), reload.interval, std::nullopt, std::move(by));
  co_return json_response({{"ok", true}, {"results", std::move(results)}});
}

// Without a draft only the streams are loaded again, which a failure may have left behind.
Async<> ProfileRoutes::publish(long long id, std::string by) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<ProfileDraft> draft = profiles_.kept_draft(id);
  if (!draft) co_return;
  co_await try_on_streams(draft);
  const std::shared_ptr<ProfileDraft> before = profiles_.stored(id);
  try {
    co_await store(draft);
  } catch (const std::system_error& failure) {
    profiles_.store(before);
    throw HttpError(500, fmt::format("The profile can't be saved: {}", failure.what()));
  }
  if (!profiles_.drop_draft(id)) log(LogLevel::error, "Web", profiles_.get_error_msg());
  tell(JournalKind::changed, id, std::move(by), " (applied)");
}

Async<> ProfileRoutes::try_on_streams(std::shared_ptr<ProfileDraft> draft) {
  FormFindings findings;
  for (const std::shared_ptr<Stream>& stream : users_of(draft->id())) {
    try {
      co_await try_profile(stream->conf, draft);
    } catch (const HttpError& refusal) {
      const auto* form = dynamic_cast<const FormError*>(&refusal);
      for (Finding finding : form ? form->findings() : FormFindings{as_finding(refusal.what())}) {
        finding.message = fmt::format("stream {}: {}", stream->id, finding.message);
        findings.push_back(std::move(finding));
      }
    }
    if (findings.size() >= max_findings) break;
  }
  if (!findings.empty()) throw FormError(std::move(findings));
}

// An empty form: every load of a document takes its profile over.
Async<Value> ProfileRoutes::reload_stream(std::shared_ptr<Stream> stream, std::string by) {
  const Value before = stream->conf->document();
  Value result{{"id", stream->id}, {"ok", true}};
  try {
    const Value changed = co_await streams_.change_stream(stream->id, Value::object(), {}, std::move(by));
    result["changed"] = list_changed_keys(before, stream->conf->document());
    result["pending"] = changed.at("pending");
  } catch (const std::exception& failure) {
    result["ok"] = false;
    result["error"] = mask_passwords(failure.what());
  }
  co_return result;
}

Async<> ProfileRoutes::store(std::shared_ptr<ProfileDraft> draft) {
  if (!profiles_.store(draft)) throw HttpError(500, profiles_.get_error_msg());
  co_await sync_file(profiles_.path(draft->id()));
}

Async<Response> ProfileRoutes::remove(std::string id, std::string by) {
  const auto guard = co_await changes_.acquire();
  const long long number = find(id);
  co_await refuse_used(number);
  const std::filesystem::path path = profiles_.path(number);
  if (!profiles_.remove(number)) throw HttpError(500, profiles_.get_error_msg());
  tell(JournalKind::deleted, number, std::move(by));
  co_await sync_or_log(path.parent_path());
  co_return empty_response();
}

}  // namespace weir
