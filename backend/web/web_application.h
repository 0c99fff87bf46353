#pragma once

#include "backend/web/batch_routes.h"
#include "backend/web/hls_files.h"
#include "backend/web/http_server.h"
#include "backend/web/profile_routes.h"
#include "backend/web/publishing/http_outputs.h"
#include "backend/web/router.h"
#include "backend/web/server_routes.h"
#include "backend/web/stream_routes.h"

namespace weir {

/// The whole web layer: every route, and the server that answers by them.
class WebApplication {
 public:
  /// Manager and profiles outlive the application.
  WebApplication(ServerStreamManager& manager, ProfileRegistry& profiles, ProbeFunction probe);

  /// Answers a request. Until `set_ready(true)` only the server's own state can be asked.
  Async<Response> answer(Request request) const;
  void set_ready(bool ready) noexcept { server_routes_.set_ready(ready); }

  HttpServer& server() noexcept { return server_; }
  HttpOutputs& http_outputs() noexcept { return http_outputs_; }

 private:
  Semaphore document_changes_{1};
  StreamRoutes streams_;
  BatchRoutes batches_;
  ProfileRoutes profiles_;
  ServerRoutes server_routes_;
  HlsFiles hls_files_;
  HttpOutputs http_outputs_;
  Router router_;
  HttpServer server_;
};

}  // namespace weir
