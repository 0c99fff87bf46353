#include "backend/platform/turn_times.h"

#include <algorithm>

namespace weir {

void TurnTimes::record(std::chrono::nanoseconds turn) noexcept {
  total_ += turn;
  longest_ = std::max(longest_, turn);
  std::size_t i = 0;
  while (i < bounds.size() && turn > bounds[i]) ++i;
  ++counts_[i];
}

void TurnTimes::record_lag(std::chrono::nanoseconds lag) noexcept {
  latest_lag_ = std::max(lag, std::chrono::nanoseconds(0));
  longest_lag_ = std::max(longest_lag_, latest_lag_);
}

}  // namespace weir
