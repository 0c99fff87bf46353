#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "backend/platform/clock.h"

namespace weir {

/// How much each HLS variant of a cycle carries, by the segments that were completed lately.
class SegmentRates {
 public:
  void complete(std::size_t variant, std::uint64_t bytes, TimePoint time);

  /// kbit/s per variant; nothing while less than two segments are there, and when the next one is long overdue.
  std::vector<std::optional<double>> kilobits(TimePoint time) const;

 private:
  struct Completed {
    TimePoint time;
    std::uint64_t bytes = 0;
  };
  /// The latest segments of one variant, a ring.
  struct Variant {
    std::array<Completed, 6> segments;
    std::size_t count = 0;  ///< since the cycle's begin
  };
  static std::optional<double> rate(const Variant& variant, TimePoint time);

  std::vector<Variant> variants_;
};

}  // namespace weir
