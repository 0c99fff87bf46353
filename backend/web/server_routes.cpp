#include "backend/web/server_routes.h"

#include <nlohmann/json.hpp>

#include "backend/base/text.h"
#include "backend/web/masked_value.h"

namespace weir {

void ServerRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", "/healthz", [this](const Request&, Parameters) { return live(); });
  router.add("GET", "/readyz", [this](const Request&, Parameters) { return readiness(); });
  router.add("GET", "/api/probe", [this](const Request& r, Parameters) { return probe(r); });
}

Async<Response> ServerRoutes::live() { co_return ok_response(); }

Async<Response> ServerRoutes::readiness() {
  co_return ready_ ? ok_response() : error_response(503, "The streams are not loaded");
}

Async<Response> ServerRoutes::probe(const Request& request) {
  const std::string url(trim(request.query("url")));
  if (url.empty()) throw HttpError(400, "\"url\" is needed");
  // Each one is a process of its own.
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
