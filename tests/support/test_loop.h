#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/platform/loop.h"
#include "backend/platform/task.h"
#include "tests/support/movable_clock.h"

namespace weir::test {

using namespace std::chrono_literals;

/// Runs the loop until the condition holds, with real children and sockets: false when `timeout` of real time has
/// passed first.
bool run_until(Loop& loop, const std::function<bool()>& condition, std::chrono::nanoseconds timeout);

/// A loop on a clock that only tests move. Failures that leave a task are collected.
class TestLoop : public Loop {
 public:
  explicit TestLoop(WallTime wall = WallTime(std::chrono::hours(24 * 365 * 50)));

  /// Runs whatever can run without time moving: ready tasks, readable descriptors, completed operations.
  void settle();
  /// Moves the clock forward, stopping at each timer on the way and settling there.
  void advance(std::chrono::nanoseconds duration);
  bool run_until(const std::function<bool()>& condition, std::chrono::nanoseconds timeout) {
    return test::run_until(*this, [&] { return settle(), condition(); }, timeout);
  }

  /// Runs a coroutine to its end without time moving and gives its result; throws what it throws. A coroutine that
  /// waits for time fails with `std::logic_error`.
  template <class T>
  T run(Async<T> body) {
    std::optional<T> result;
    std::exception_ptr failure;
    Task task = spawn("test", store(std::move(body), result, failure));
    finish(task, failure);
    return std::move(*result);
  }
  void run(Async<> body);

  std::vector<std::string> failures;

 private:
  template <class T>
  static Async<> store(Async<T> body, std::optional<T>& result, std::exception_ptr& failure) {
    try {
      result = co_await body;
    } catch (...) {
      failure = std::current_exception();
    }
  }
  void finish(const Task& task, const std::exception_ptr& failure);

  MovableClock& clock_;
};

}  // namespace weir::test
