#include "tests/support/test_loop.h"

#include <stdexcept>

#include "backend/platform/failure.h"

namespace weir::test {

TestLoop::TestLoop(WallTime wall) : Loop(std::make_unique<MovableClock>(wall)) {
  on_unhandled_failure([this](std::string_view task, const std::exception_ptr& failure) {
    failures.push_back(format_traceback(failure, task));
  });
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
