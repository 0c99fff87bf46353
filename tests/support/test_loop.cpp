#include "tests/support/test_loop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <stdexcept>

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

void TestLoop::run(Async<> body) {
  std::exception_ptr failure;
  const auto guarded = [](Async<> inner, std::exception_ptr& caught) -> Async<> {
    try {
      co_await inner;
    } catch (...) {
      caught = std::current_exception();
    }
  };
  finish(spawn("test", guarded(std::move(body), failure)), failure);
}

void TestLoop::finish(const Task& task, const std::exception_ptr& failure) {
  settle();
  if (failure) std::rethrow_exception(failure);
  if (!task.dead()) throw std::logic_error("the coroutine waits for time to pass");
}

}  // namespace weir::test
