#pragma once

#include <map>
#include <memory>
#include <optional>

#include "backend/base/value.h"
#include "backend/collaborators/nvidia.h"
#include "backend/platform/clock.h"
#include "backend/services/graphics/gpu_source.h"

namespace weir {

/// The graphics processors' figures per process. They are read at most once a second, for all processes at once.
/// A process that uses several has the index of the first, the sum of their memory and the percentages of the busiest.
/// Without a source every figure is null.
class GpuFigures : public NvidiaProcessManager {
 public:
  explicit GpuFigures(std::unique_ptr<GpuSource> source);
  Value query_gpu(pid_t pid) override;
  Value query_dec(pid_t pid) override;
  Value query_sm(pid_t pid) override;
  Value query_enc(pid_t pid) override;
  Value query_fb(pid_t pid) override;

 private:
  /// The process's figures; null when it uses no graphics processor.
  const GpuProcess* find(pid_t pid);
  /// One of the figures; null when it is not known.
  Value figure(pid_t pid, std::optional<unsigned> GpuProcess::* member);

  std::unique_ptr<GpuSource> source_;
  std::optional<TimePoint> read_at_;
  std::map<pid_t, GpuProcess> processes_;
};

/// Names the library that transcoders of an "nvenc" build are started with.
class GpuDriver : public NvidiaDriverManager {
 public:
  explicit GpuDriver(std::string patch_library) : patch_library_(std::move(patch_library)) {}
  std::string get_patch_library() const override { return patch_library_; }

 private:
  std::string patch_library_;
};

}  // namespace weir
