#include "backend/web/publishing/publishing_gate.h"

#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"

namespace weir {

namespace {

constexpr std::string_view needs_link = "A valid link is needed to watch this stream";

// Players on pages of any site may read it.
Response answer(int status, std::string_view message) {
  Response response = error_response(status, message);
  response.headers.emplace_back("Access-Control-Allow-Origin", "*");
  return response;
}

}  // namespace

void PublishingGate::add_to(Router& router) {
  // Who comes here was admitted.
  router.add("GET", "/{id:number}/access",
             [](const Request&, const PathParameters&) { return immediate(empty_response()); }, {.role = Role::nobody});
}

std::optional<Response> PublishingGate::refuse(Request& request) {
  std::vector<std::string>& path = request.target.path;
  const std::size_t at = path[0] == "stream" ? 1 : 0;
  const bool is_published = path.size() > at + 1 && is_number(path[at]) && path.size() <= at + 3;
  if (!is_published) return std::nullopt;
  if (path.size() == at + 2) {
    std::optional<Response> refusal = refuse_without_token(path[at]);
    // A proxy takes 403 for a refusal, and 404 for a failure.
    if (refusal && at == 0 && path[1] == "access") refusal->status = 403;
    return refusal;
  }
  if (!links_.is_valid(parse_integer(path[at]).value_or(-1), path[at + 1])) return answer(403, needs_link);
  path.erase(path.begin() + static_cast<std::ptrdiff_t>(at) + 1);
  return std::nullopt;
}

// Of a deleted stream the last segments can be fetched for a while: by those who could before.
std::optional<Response> PublishingGate::refuse_without_token(const std::string& id) {
  const std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) {
    if (open_.contains(parse_integer(id).value_or(-1))) return std::nullopt;
    return answer(404, "File not found");
  }
  if (stream->conf->get_json_conf("access") == "link") {
    open_.erase(stream->id);
    return answer(403, needs_link);
  }
  open_.insert(stream->id);
  return std::nullopt;
}

}  // namespace weir
