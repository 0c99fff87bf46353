#include "backend/platform/detached_call.h"

#include <system_error>
#include <thread>

#include "backend/platform/clock.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

constexpr std::chrono::milliseconds look_interval{20};

bool begin(std::function<void()> work, const std::shared_ptr<std::atomic<bool>>& busy) {
  if (busy->exchange(true)) return false;
  try {
    std::thread([work = std::move(work), busy] {
      work();
      *busy = false;
    }).detach();
    return true;
  } catch (const std::system_error&) {
    *busy = false;
    return false;
  }
}

}  // namespace

// The thread may outlive the loop, so it does not wake it.
Async<bool> DetachedCall::run(std::function<void()> work, std::chrono::nanoseconds timeout) {
  const std::shared_ptr<std::atomic<bool>> busy = busy_;
  if (!begin(std::move(work), busy)) co_return false;
  const TimePoint deadline = now() + timeout;
  while (*busy && now() < deadline) co_await sleep(look_interval);
  co_return !*busy;
}

}  // namespace weir
