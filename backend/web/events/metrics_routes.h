#pragma once

#include <functional>
#include <string>
#include <vector>

#include "backend/platform/loop.h"
#include "backend/platform/semaphore.h"
#include "backend/web/events/metrics_text.h"
#include "backend/web/events/stream_counters.h"
#include "backend/web/ffmpeg_version.h"
#include "backend/web/http_figures.h"
#include "backend/web/now/sampler.h"
#include "backend/web/router.h"
#include "backend/web/server_stream_manager.h"

namespace weir {

/// /metrics: everything in Prometheus' text format.
class MetricsRoutes {
 public:
  /// Adds the metrics of one part of the server.
  using Source = std::function<void(MetricsText&)>;

  /// Manager, sampler and version outlive the routes.
  MetricsRoutes(ServerStreamManager& manager, const Sampler& sampler, FfmpegVersion& ffmpeg,
                std::function<HttpFigures()> http)
      : manager_(manager), sampler_(sampler), ffmpeg_(ffmpeg), http_(std::move(http)) {}
  void add_to(Router& router);
  void add_source(Source source) { sources_.push_back(std::move(source)); }

 private:
  Async<Response> answer();
  Async<> add_server(std::shared_ptr<MetricsText> text);

  ServerStreamManager& manager_;
  const Sampler& sampler_;
  FfmpegVersion& ffmpeg_;
  std::function<HttpFigures()> http_;
  std::vector<Source> sources_;
  StreamCounters counters_;
  Semaphore turns_{1};
  const WallTime start_ = Loop::current().clock().wall();
};

}  // namespace weir
