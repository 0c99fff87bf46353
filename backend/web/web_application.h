#pragma once

#include "backend/web/access/access_routes.h"
#include "backend/web/access/user_routes.h"
#include "backend/web/api/backup_routes.h"
#include "backend/web/api/idempotency_keys.h"
#include "backend/web/batch_routes.h"
#include "backend/web/events/event_routes.h"
#include "backend/web/events/metrics_routes.h"
#include "backend/web/events/webhook_routes.h"
#include "backend/web/history_routes.h"
#include "backend/web/http_server.h"
#include "backend/web/now/cycle_member.h"
#include "backend/web/now/now_routes.h"
#include "backend/web/now/sampler.h"
#include "backend/web/profile_routes.h"
#include "backend/web/publishing/hls_routes.h"
#include "backend/web/publishing/http_outputs.h"
#include "backend/web/publishing/link_routes.h"
#include "backend/web/publishing/publishing_gate.h"
#include "backend/web/publishing/thumbnails.h"
#include "backend/web/router.h"
#include "backend/web/server_routes.h"
#include "backend/web/stream_routes.h"

namespace weir {

struct WebSettings {
  ViewerLimits viewers;
  std::set<std::string> trusted_proxies;  ///< see `HttpService`
  WebhookSettings webhooks = {};
  std::string links_directory = {};  ///< see `PublishingLinks`
  AccessSettings access = {};
};

/// The whole web layer: every route, and the server that answers by them.
class WebApplication {
 public:
  /// Manager, profiles, windows and history outlive the application.
  WebApplication(ServerStreamManager& manager, ProfileRegistry& profiles, HlsWindows& windows, History& history,
                 InputProbe probe, WebSettings settings = {});

  /// Answers a request. Until `set_ready(true)` only the server's own state can be asked.
  Async<Response> answer(Request request);
  void set_ready(bool ready) noexcept { server_routes_.set_ready(ready); }

  /// Removes what no viewer needs any more. Runs until it is killed.
  Async<> clean_up() {
    return hls_.clean_up([this] { thumbnails_.forget_unused(); });
  }

  /// Takes samples of the streams' figures. Runs until it is killed.
  Async<> sample() { return sampler_.run(); }

  Access& access() noexcept { return access_; }
  const Router& router() const noexcept { return router_; }
  HttpServer& server() noexcept { return server_; }
  HttpOutputs& http_outputs() noexcept { return http_outputs_; }

 private:
  Async<Response> answer_while_known(Request request);
  void add_record_members(const ViewerLimits& viewers);

  Access access_;
  PasswordChecker passwords_;
  AccessRoutes access_routes_;
  UserRoutes users_;
  Semaphore document_changes_{1};
  Sampler sampler_;
  CycleMember cycle_;
  StreamRoutes streams_;
  BatchRoutes batches_;
  ProfileRoutes profiles_;
  HistoryRoutes history_;
  FfmpegVersion ffmpeg_version_;
  NowRoutes now_;
  ServerRoutes server_routes_;
  MetricsRoutes metrics_;
  EventRoutes events_;
  WebhookRoutes webhooks_;
  BackupRoutes backups_;
  std::shared_ptr<Viewers> viewers_;
  PublishingLinks publishing_links_;
  PublishingGate gate_;
  LinkRoutes links_;
  HlsRoutes hls_;
  Thumbnails thumbnails_;
  HttpOutputs http_outputs_;
  Router router_;
  std::unique_ptr<IdempotencyKeys> keys_ = std::make_unique<IdempotencyKeys>();
  HttpServer server_;
};

}  // namespace weir
