#pragma once

#include <optional>
#include <string>

#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/semaphore.h"

namespace weir {

/// The first line that FFmpeg prints about its version. It is asked again after ten minutes: a server outlives an
/// upgrade.
class FfmpegVersion {
 public:
  /// Empty when FFmpeg can't be run.
  Async<std::string> get();

 private:
  static Async<std::string> ask();

  Semaphore turns_{1};
  std::string version_;
  std::optional<TimePoint> asked_;
};

}  // namespace weir
