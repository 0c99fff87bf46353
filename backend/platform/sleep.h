#pragma once

#include <chrono>

#include "backend/platform/clock.h"
#include "backend/platform/task.h"
#include "backend/platform/timers.h"

namespace weir {

/// A wait until a point of the loop's time. Always yields, also when the point has passed.
class SleepWait final : public Wait, private Timer {
 public:
  explicit SleepWait(TimePoint due) noexcept : due_(due) {}
  ~SleepWait();
  void await_resume() { finish(); }
  /// Ends the wait before its time.
  void wake() noexcept;

 private:
  bool begin() override;
  bool cancel() noexcept override;
  void expire() override;

  TimePoint due_;
  Timers::Entry entry_;
};

/// Waits for the duration, never less; always yields, also for zero. Durations of any size are in range.
SleepWait sleep(std::chrono::nanoseconds duration);
SleepWait sleep_seconds(double seconds);

/// The duration of that many seconds; those beyond what a sleep can take are the longest sleep, none is negative.
std::chrono::nanoseconds to_duration(double seconds);

/// Waits until the loop's time is a multiple of `period`: all tasks of the same period wake together.
SleepWait sleep_to_next(std::chrono::nanoseconds period);

}  // namespace weir
