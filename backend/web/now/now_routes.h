#pragma once

#include "backend/web/now/sampler.h"
#include "backend/web/now/system_report.h"
#include "backend/web/router.h"

namespace weir {

/// /api/streams/{id}/series and /api/system.
class NowRoutes {
 public:
  /// All outlive the routes.
  NowRoutes(StreamManager& manager, const Sampler& sampler, FfmpegVersion& ffmpeg)
      : manager_(manager), sampler_(sampler), system_(manager, ffmpeg) {}
  void add_to(Router& router);

 private:
  Response series(const Value& id, std::string_view names);
  Async<Response> system();

  StreamManager& manager_;
  const Sampler& sampler_;
  SystemReport system_;
};

}  // namespace weir
