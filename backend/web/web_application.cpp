#include "backend/web/web_application.h"

namespace weir {

namespace {

bool asks_for_state(const Request& request) {
  return request.target.path.size() == 1 && (request.target.path[0] == "healthz" || request.target.path[0] == "readyz");
}

Response not_ready() {
  Response response = error_response(503, "The server is starting or ending");
  response.headers.emplace_back("Retry-After", "2");
  return response;
}

}  // namespace

WebApplication::WebApplication(ServerStreamManager& manager, ProfileRegistry& profiles, HlsWindows& windows,
                               ProbeFunction probe, ViewerLimits limits)
    : streams_(manager, document_changes_),
      batches_(manager),
      profiles_(manager, profiles, document_changes_),
      server_routes_(probe),
      viewers_(limits),
      hls_(manager, windows, viewers_, std::move(probe)),
      http_outputs_(manager),
      server_([this](Request request) { return answer(std::move(request)); }) {
  streams_.add_to(router_);
  batches_.add_to(router_);
  profiles_.add_to(router_);
  server_routes_.add_to(router_);
  http_outputs_.add_to(router_);
  // Last: its pattern fits many addresses.
  hls_.add_to(router_);
}

Async<Response> WebApplication::answer(Request request) const {
  if (!server_routes_.ready() && !asks_for_state(request)) return immediate(not_ready());
  return router_.route(std::move(request));
}

}  // namespace weir
