#include "backend/web/profile_routes.h"

#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

void refuse_id(const Value& form) {
  for (const auto& [key, value] : form.items())
    if (key.substr(0, key.find('.')) == "id") throw HttpError(400, "\"id\" is kept by the server");
}

}  // namespace

void ProfileRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", "/api/profiles", [this](const Request&, Parameters) { return list(); });
  router.add("POST", "/api/profiles", [this](const Request& r, Parameters) { return add(r); });
  router.add("GET", "/api/profiles/{id}", [this](const Request&, Parameters p) { return read(p[0]); });
  router.add("PATCH", "/api/profiles/{id}", [this](const Request& r, Parameters p) { return change(r, p[0]); });
  router.add("DELETE", "/api/profiles/{id}", [this](const Request&, Parameters p) { return remove(p[0]); });
}

Value ProfileRoutes::find(const std::string& text) {
  const auto id = is_number(text) ? parse_integer(text) : std::nullopt;
  if (!id) throw HttpError(404, fmt::format("There is no profile {}", text));
  Value record = profiles_.read(*id);
  if (record.is_null()) throw HttpError(404, profiles_.error());
  return record;
}

Async<Response> ProfileRoutes::list() { co_return json_response(profiles_.list()); }

Async<Response> ProfileRoutes::read(const std::string& id) { co_return json_response(find(id)); }

Async<Response> ProfileRoutes::add(const Request& request) {
  const Value form = read_form(request);
  refuse_id(form);
  const auto id = profiles_.add(form);
  if (!id) throw HttpError(400, profiles_.error());
  co_await sync_file(profiles_.path(*id));
  co_return json_response({{"id", *id}}, 201);
}

Async<Response> ProfileRoutes::change(const Request& request, const std::string& text) {
  const long long id = find(text).at("id").get<long long>();
  const Value form = read_form(request);
  refuse_id(form);
  if (!profiles_.change(id, form)) throw HttpError(400, profiles_.error());
  co_await sync_file(profiles_.path(id));
  co_return ok_response();
}

Async<Response> ProfileRoutes::remove(const std::string& text) {
  const Value id = find(text).at("id");
  const auto users = manager_.get_all_stream_by_profile_id(id);
  if (!users.empty())
    throw HttpError(409, fmt::format("Profile {} is used by stream {}", to_text(id), users.front()->id));
  const std::filesystem::path path = profiles_.path(id.get<long long>());
  if (!profiles_.remove(id.get<long long>())) throw HttpError(500, profiles_.error());
  co_await sync_file(path.parent_path());
  co_return empty_response();
}

}  // namespace weir
