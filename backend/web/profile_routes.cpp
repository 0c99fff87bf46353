#include "backend/web/profile_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/collaborators/journal.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/manager/stream_file.h"
#include "backend/web/masked_value.h"
#include "backend/web/schema/profile_form.h"
#include "backend/web/stream_form.h"
#include "backend/web/sync.h"

namespace weir {

namespace {

void refuse_id(const Value& form) {
  for (const auto& [key, value] : form.items())
    if (key.substr(0, key.find('.')) == "id") throw HttpError(400, "\"id\" is kept by the server");
}

void tell(JournalKind kind, long long profile, std::string by) {
  journal().record({.kind = kind, .by = std::move(by), .text = fmt::format("profile {}", profile)});
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

// Tells which stream can't be loaded with the profile.
Async<> try_on(std::shared_ptr<const Stream> stream, std::shared_ptr<const ProfileDraft> draft) {
  try {
    co_await try_profile(stream->conf, draft);
  } catch (const HttpError& refusal) {
    throw FormError({{"", fmt::format("stream {}: {}", stream->id, refusal.what())}});
  }
}

}  // namespace

void ProfileRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  // What waits gets values: the request is read before.
  router.add("GET", "/api/profiles", [this](const Request& r, Parameters) { return list(r.identity.role); });
  router.add("POST", "/api/profiles", [this](const Request& r, Parameters) { return add(read_form(r), r.by()); });
  router.add("GET", "/api/profiles/{id}",
             [this](const Request& r, Parameters p) { return read(p[0], r.identity.role); });
  router.add("PATCH", "/api/profiles/{id}",
             [this](const Request& r, Parameters p) { return change(p[0], read_form(r), r.by()); });
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

Async<Response> ProfileRoutes::list(Role role) { co_return json_response(shown_to(role, profiles_.list())); }

Async<Response> ProfileRoutes::read(std::string id, Role role) {
  co_return json_response(shown_to(role, profiles_.read(find(id))));
}

Async<Response> ProfileRoutes::add(Value form, std::string by) {
  refuse_id(form);
  const auto guard = co_await changes_.acquire();
  FormFindings warnings;
  const Value checked = prepare_profile_form(Value(), form, warnings);
  const std::shared_ptr<ProfileDraft> draft = profiles_.draft_new(checked);
  if (!draft) throw HttpError(400, profiles_.get_error_msg());
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
  refuse_id(form);
  const auto guard = co_await changes_.acquire();
  const long long number = find(id);
  FormFindings warnings;
  const Value checked = prepare_profile_form(profiles_.read(number), form, warnings);
  const std::shared_ptr<ProfileDraft> draft = profiles_.draft_change(number, checked);
  if (!draft) throw HttpError(400, profiles_.get_error_msg());
  for (const std::shared_ptr<Stream>& stream : users_of(number)) co_await try_on(stream, draft);
  co_await store(draft);
  tell(JournalKind::changed, number, std::move(by));
  Value answer{{"ok", true}};
  if (!warnings.empty()) answer["warnings"] = to_json_value(warnings);
  co_return json_response(answer);
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
