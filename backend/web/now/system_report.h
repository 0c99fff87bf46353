#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/detached_call.h"
#include "backend/platform/semaphore.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/ffmpeg_version.h"

namespace weir {

/// The machine and the server, as GET /api/system answers them.
class SystemReport {
 public:
  /// Both outlive the report.
  SystemReport(const StreamManager& manager, FfmpegVersion& ffmpeg) : manager_(manager), ffmpeg_(ffmpeg) {}

  /// A disk that does not answer within 2 s is shown as such; nothing else waits for it.
  Async<Value> make();

 private:
  Async<Value> describe_disk(std::string directory, std::size_t disk);
  Value describe_gpus() const;
  Value describe_loop() const;

  const StreamManager& manager_;
  FfmpegVersion& ffmpeg_;
  const TimePoint begin_ = now();
  std::array<DetachedCall, 2> disks_;
  Semaphore asking_{1};
};

}  // namespace weir
