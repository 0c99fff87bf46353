#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace weir {

/// How often something took how long, in classes that monitoring systems can add up.
class DurationHistogram {
 public:
  /// The upper ends of the classes in seconds; what takes longer belongs to one more class.
  static constexpr std::array bounds{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1.0, 2.5, 10.0};

  void add(std::chrono::nanoseconds duration) noexcept {
    const double seconds = std::chrono::duration<double>(duration).count();
    std::size_t at = 0;
    while (at < bounds.size() && seconds > bounds[at]) ++at;
    ++counts_[at];
    sum_ += seconds;
  }

  /// Of each class alone, the last one without an upper end.
  const std::array<std::uint64_t, bounds.size() + 1>& counts() const noexcept { return counts_; }
  double sum() const noexcept { return sum_; }

 private:
  std::array<std::uint64_t, bounds.size() + 1> counts_{};
  double sum_ = 0;
};

}  // namespace weir
