#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>

#include "backend/platform/clock.h"
#include "backend/platform/descriptor.h"

namespace weir {

struct MemoryInfo {
  std::uint64_t rss;  ///< resident set in bytes
};

/// Figures of a process. Tests put scripted ones in the place of the real ones.
class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;
  /// CPU use in percent of one core since the previous call on this handle, to one decimal; 0.0 at the first call.
  /// Throws `NoSuchProcess`.
  virtual double cpu_percent() = 0;
  /// CPU time used since the process's start. Asking for it changes nothing for `cpu_percent`. Throws `NoSuchProcess`.
  virtual std::chrono::nanoseconds cpu_time() = 0;
  /// Throws `NoSuchProcess`.
  virtual MemoryInfo memory_info() = 0;
};

/// Figures from /proc/<pid>/statm, which is kept open and so can never mean a later process of the same id, and the
/// process's CPU clock. A process that has ended and only waits to be reaped counts as gone. Memory is read once a
/// second at most, as the kernel takes longer for it than for all the rest of a stream's record.
class Process : public ProcessInfo {
 public:
  /// Throws `NoSuchProcess`.
  explicit Process(pid_t pid);
  double cpu_percent() override;
  std::chrono::nanoseconds cpu_time() override;
  MemoryInfo memory_info() override;

 private:
  pid_t pid_;
  clockid_t cpu_clock_;
  Descriptor statm_;
  std::optional<MemoryInfo> memory_;
  TimePoint memory_time_;
  bool measured_ = false;
  TimePoint last_time_;
  std::chrono::nanoseconds last_cpu_{0};
};

}  // namespace weir
