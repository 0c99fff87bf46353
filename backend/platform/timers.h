#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>

#include "backend/platform/clock.h"

namespace weir {

/// Something that is due at a point in time. It must be cancelled before it ends.
class Timer {
 public:
  virtual void expire() = 0;

 protected:
  ~Timer() = default;
};

/// All timers of a loop in one ordered table, from whose head one real timer is set. Points in time are rounded up to a
/// grain, so that what is due within the same grain wakes together and nothing is ever early: a wake-up of an idle
/// process costs more than everything that happens in it.
class Timers {
 public:
  using Entry = std::multimap<TimePoint, Timer*>::iterator;
  static constexpr std::chrono::milliseconds grain{10};

  Entry add(TimePoint due, Timer& timer);
  void cancel(Entry entry) { table_.erase(entry); }
  /// The point at which the earliest timer is due.
  std::optional<TimePoint> next() const;
  /// Expires what is due at `now`.
  void expire(TimePoint now);

  /// Called when an added timer is due before all others.
  void on_earlier(std::function<void()> callback) { on_earlier_ = std::move(callback); }

 private:
  std::multimap<TimePoint, Timer*> table_;
  std::function<void()> on_earlier_;
};

/// The first point on the grid of `grain` that is not before `point`.
TimePoint round_up(TimePoint point, std::chrono::nanoseconds grain);

}  // namespace weir
