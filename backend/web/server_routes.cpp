#include "backend/web/server_routes.h"

#include <nlohmann/json.hpp>

#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/web/masked_value.h"

namespace weir {

void ServerRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", "/healthz", [](const Request&, Parameters) { return immediate(ok_response()); });
  router.add("GET", "/readyz", [this](const Request&, Parameters) { return immediate(readiness()); });
  router.add("GET", "/api/version",
             [](const Request&, Parameters) { return immediate(json_response({{"version", Config::VERSION}})); });
  router.add("GET", "/api/probe",
             [this](const Request& r, Parameters) { return probe(std::string(trim(r.query("url")))); });
}

Response ServerRoutes::readiness() const {
  return ready_ ? ok_response() : error_response(503, "The streams are not loaded");
}

Async<Response> ServerRoutes::probe(std::string url) {
  if (url.empty()) throw HttpError(400, "\"url\" is required");
  // Each probe is a process.
  const auto permit = co_await probes_.acquire();
  try {
    Value found = co_await probe_(url);
    mask_value(found);
    co_return json_response(found);
  } catch (const std::exception& failure) {
    throw HttpError(400, failure.what());
  }
}

}  // namespace weir
