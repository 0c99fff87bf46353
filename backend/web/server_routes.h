#pragma once

#include <functional>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/semaphore.h"
#include "backend/web/directory_check.h"
#include "backend/web/ffmpeg_encoders.h"
#include "backend/web/ffmpeg_version.h"
#include "backend/web/router.h"

namespace weir {

/// What an input holds: a mapping with "url", as documents have it. Throws an ordinary failure with the reason when it
/// can't be read.
using InputProbe = std::function<Async<Value>(Value input)>;

/// /healthz, /readyz, /api/version, /api/encoders and /api/probe: the server itself.
class ServerRoutes {
 public:
  /// The version outlives the routes.
  ServerRoutes(InputProbe probe, FfmpegVersion& ffmpeg)
      : probe_(std::move(probe)), ffmpeg_(ffmpeg), encoders_(ffmpeg) {}
  void add_to(Router& router);

  /// Whether the streams are loaded and the server is not ending. False at first.
  void set_ready(bool ready) noexcept { ready_ = ready; }
  bool ready() const noexcept { return ready_; }

 private:
  static constexpr int max_probes = 4;

  Async<Response> readiness(Role role);
  Async<Response> version();
  Async<Response> encoders();
  Async<Response> probe(Value input);

  InputProbe probe_;
  FfmpegVersion& ffmpeg_;
  FfmpegEncoders encoders_;
  DirectoryCheck data_;
  Semaphore probes_{max_probes};
  bool ready_ = false;
};

}  // namespace weir
