#pragma once

#include <chrono>

#include "backend/platform/clock.h"

namespace weir::test {

/// A clock that stands still until it is moved: both time lines move together.
class MovableClock : public Clock {
 public:
  explicit MovableClock(WallTime wall) : wall_(wall) {}

  TimePoint now() const override { return now_; }
  WallTime wall() const override { return wall_; }
  bool runs() const override { return false; }
  void move_to(TimePoint point) {
    wall_ += std::chrono::duration_cast<WallTime::duration>(point - now_);
    now_ = point;
  }

 private:
  TimePoint now_{std::chrono::hours(1)};
  WallTime wall_;
};

}  // namespace weir::test
