#include "tests/support/test_loop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "backend/platform/failure.h"
#include "backend/platform/poller.h"

namespace weir::test {

bool run_until(Loop& loop, const std::function<bool()>& condition, std::chrono::nanoseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const auto work = boost::asio::make_work_guard(loop.context());
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    loop.context().restart();
    loop.context().run_one_for(5ms);
  }
  return true;
}

void MovableClock::move_to(TimePoint point) {
  wall_ += std::chrono::duration_cast<WallTime::duration>(point - now_);
  now_ = point;
}

TestLoop::TestLoop(WallTime wall)
    : Loop(std::make_unique<MovableClock>(wall)), clock_(dynamic_cast<MovableClock&>(clock())) {
  on_unhandled_failure([this](std::string_view task, const std::exception_ptr& failure) {
    failures.push_back(format_traceback(failure, task));
  });
}

// Ready tasks run as handlers of the context.
void TestLoop::settle() {
  bool any_readable = false;
  std::size_t handled = 0;
  do {
    any_readable = poller().poll();
    context().restart();
    handled = context().poll();
  } while (any_readable || handled > 0);
}

void TestLoop::advance(std::chrono::nanoseconds duration) {
  const TimePoint target = clock_.now() + duration;
  settle();
  while (timers().next() && *timers().next() <= target) {
    clock_.move_to(*timers().next());
    timers().expire(clock_.now());
    settle();
  }
  clock_.move_to(target);
}

bool TestLoop::run_until(const std::function<bool()>& condition, std::chrono::nanoseconds timeout) {
  return test::run_until(static_cast<Loop&>(*this), [&] { return settle(), condition(); }, timeout);
}

}  // namespace weir::test
