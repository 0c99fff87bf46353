#include "backend/platform/timers.h"

namespace weir {

Timers::Entry Timers::add(TimePoint due, Timer& timer) {
  const auto entry = table_.emplace(round_up(due, grain), &timer);
  if (entry == table_.begin() && on_earlier_) on_earlier_();
  return entry;
}

std::optional<TimePoint> Timers::next() const {
  if (table_.empty()) return std::nullopt;
  return table_.begin()->first;
}

void Timers::expire(TimePoint now) {
  while (!table_.empty() && table_.begin()->first <= now) {
    Timer* timer = table_.begin()->second;
    table_.erase(table_.begin());
    timer->expire();
  }
}

TimePoint round_up(TimePoint point, std::chrono::nanoseconds grain) {
  const auto since_start = std::chrono::duration_cast<std::chrono::nanoseconds>(point.time_since_epoch());
  return TimePoint((since_start + grain - std::chrono::nanoseconds(1)) / grain * grain);
}

}  // namespace weir
