#include "backend/platform/sleep.h"

#include <algorithm>
#include <cmath>

#include "backend/platform/loop.h"

namespace weir {

namespace {

// A hundred years: adding it to a point in time does not overflow.
constexpr std::chrono::nanoseconds max_sleep = std::chrono::hours(24 * 365 * 100);

}  // namespace

SleepWait::~SleepWait() {
  if (waiting()) Loop::current().timers().cancel(entry_);
}

bool SleepWait::begin() {
  entry_ = Loop::current().timers().add(due_, *this);
  return true;
}

bool SleepWait::cancel() noexcept {
  Loop::current().timers().cancel(entry_);
  return true;
}

void SleepWait::expire() { complete(); }

void SleepWait::wake() noexcept {
  if (!waiting()) return;
  Loop::current().timers().cancel(entry_);
  complete();
}

SleepWait sleep(std::chrono::nanoseconds duration) {
  return SleepWait(now() + std::clamp(duration, std::chrono::nanoseconds(0), max_sleep));
}

SleepWait sleep_seconds(double seconds) { return sleep(to_duration(seconds)); }

std::chrono::nanoseconds to_duration(double seconds) {
  const double max_seconds = std::chrono::duration<double>(max_sleep).count();
  const double bounded = std::isnan(seconds) ? 0.0 : std::clamp(seconds, 0.0, max_seconds);
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(bounded));
}

SleepWait sleep_to_next(std::chrono::nanoseconds period) {
  return SleepWait(round_up(now() + std::chrono::nanoseconds(1), period));
}

}  // namespace weir
