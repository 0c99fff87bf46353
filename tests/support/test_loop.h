#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "backend/platform/loop.h"
#include "backend/platform/task.h"

namespace weir::test {

using namespace std::chrono_literals;

/// A clock that stands still until it is moved: both time lines move together.
class MovableClock : public Clock {
 public:
  explicit MovableClock(WallTime wall) : wall_(wall) {}

  TimePoint now() const override { return now_; }
  WallTime wall() const override { return wall_; }
  bool runs() const override { return false; }
  void move_to(TimePoint point);

 private:
  TimePoint now_{std::chrono::hours(1)};
  WallTime wall_;
};

/// A loop on a clock that only tests move. Failures that leave a task are collected.
class TestLoop : public Loop {
 public:
  explicit TestLoop(WallTime wall = WallTime(std::chrono::hours(24 * 365 * 50)));

  /// Runs whatever can run without time moving: ready tasks, readable descriptors, completed operations.
  void settle();
  /// Moves the clock forward, stopping at each timer on the way and settling there.
  void advance(std::chrono::nanoseconds duration);
  bool run_until(const std::function<bool()>& condition, std::chrono::nanoseconds timeout);
  /// As below, without time moving.
  template <class T>
  T run(Async<T> body);

  std::vector<std::string> failures;

 private:
  MovableClock& clock_;
};

/// Runs the loop until the condition holds, with real children and sockets: false when `timeout` of real time has
/// passed first.
bool run_until(Loop& loop, const std::function<bool()>& condition, std::chrono::nanoseconds timeout);
inline bool run_until(TestLoop& loop, const std::function<bool()>& condition, std::chrono::nanoseconds timeout) {
  return loop.run_until(condition, timeout);
}

/// Runs a coroutine to its end and gives its result; throws what it throws, and `std::logic_error` after a minute of
/// real time.
template <class AnyLoop, class T>
T run(AnyLoop& loop, Async<T> body) {
  std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> result;
  std::exception_ptr failure;
  const auto keep = [](Async<T> inner, auto& into, std::exception_ptr& caught) -> Async<> {
    try {
      if constexpr (std::is_void_v<T>) {
        co_await inner;
      } else {
        into = co_await inner;
      }
    } catch (...) {
      caught = std::current_exception();
    }
  };
  const Task task = spawn("test", keep(std::move(body), result, failure));
  if (!run_until(loop, [&] { return task.dead(); }, 60s)) throw std::logic_error("the coroutine does not end");
  if (failure) std::rethrow_exception(failure);
  if constexpr (!std::is_void_v<T>) return std::move(*result);
}

template <class T>
T TestLoop::run(Async<T> body) {
  return test::run(*this, std::move(body));
}

}  // namespace weir::test
