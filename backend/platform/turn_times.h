#pragma once

#include <array>
#include <chrono>
#include <cstdint>

#include "backend/platform/clock.h"

namespace weir {

/// For how long the loop was held at a stretch: a turn is what a task runs between two waits, or what a look at timers
/// and pipes takes. Others wait meanwhile.
class TurnTimes {
 public:
  /// Upper bounds of the histogram's classes; a last class has the longer turns.
  static constexpr std::array<std::chrono::microseconds, 7> bounds{
      {std::chrono::microseconds(100), std::chrono::milliseconds(1), std::chrono::milliseconds(5),
       std::chrono::milliseconds(20), std::chrono::milliseconds(100), std::chrono::milliseconds(500),
       std::chrono::seconds(2)}};

  void record(std::chrono::nanoseconds turn) noexcept;
  /// A timer expired so much after its time.
  void record_lag(std::chrono::nanoseconds lag) noexcept;
  /// Begins the longest ones anew.
  void reset_longest() noexcept { longest_ = longest_lag_ = {}; }

  std::chrono::nanoseconds longest() const noexcept { return longest_; }
  std::chrono::nanoseconds longest_lag() const noexcept { return longest_lag_; }
  std::chrono::nanoseconds latest_lag() const noexcept { return latest_lag_; }
  /// All turns together: the time that the loop was busy in tasks.
  std::chrono::nanoseconds total() const noexcept { return total_; }
  /// Turns per class, not added up.
  const std::array<std::uint64_t, bounds.size() + 1>& counts() const noexcept { return counts_; }

 private:
  std::chrono::nanoseconds longest_{0};
  std::chrono::nanoseconds longest_lag_{0};
  std::chrono::nanoseconds latest_lag_{0};
  std::chrono::nanoseconds total_{0};
  std::array<std::uint64_t, bounds.size() + 1> counts_{};
};

}  // namespace weir
