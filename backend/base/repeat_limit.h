#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace weir {

/// Bounds lines that repeat: of equal ones the first five are written, then one a minute that says how many there were.
class RepeatLimit {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr int written_first = 5;
  static constexpr std::chrono::seconds period{60};
  static constexpr std::size_t max_keys = 20'000;  ///< beyond it, what is not yet known is always written

  /// Whether a line of this key is to be written now. Else it is counted.
  bool allows(std::uint64_t key, Time time);

  /// Calls with the key and the number of lines for each key that was kept back for a minute. Forgets keys whose lines
  /// have ended. Between two calls nothing is reported.
  void collect(Time time, const std::function<void(std::uint64_t key, int count)>& report);

  /// Whether `collect` has anything to do.
  bool empty() const noexcept { return lines_.empty(); }

 private:
  struct Repetition {
    Time seen;
    Time written;
    int first = 0;      ///< how many of the first lines were written
    int kept_back = 0;  ///< since the last one that was written
  };

  std::unordered_map<std::uint64_t, Repetition> lines_;
};

}  // namespace weir
