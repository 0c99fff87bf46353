#pragma once

#include <chrono>

namespace weir {

/// A point on the loop's own time line, which only moves forward.
using TimePoint = std::chrono::steady_clock::time_point;
using WallTime = std::chrono::system_clock::time_point;

/// Where a loop takes its time from.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual TimePoint now() const = 0;
  /// The time of day.
  virtual WallTime wall() const = 0;
  /// Whether time passes by itself, so that a real timer can wake the loop.
  virtual bool runs() const = 0;
};

class SystemClock : public Clock {
 public:
  TimePoint now() const override { return std::chrono::steady_clock::now(); }
  WallTime wall() const override { return std::chrono::system_clock::now(); }
  bool runs() const override { return true; }
};

/// The current loop's time.
TimePoint now();
/// The current loop's time of day in whole seconds since the Unix epoch.
long long wall_seconds();

}  // namespace weir
