#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <coroutine>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "backend/platform/async.h"

namespace weir {

class TaskState;

/// The task library's own exit exception. It is no `std::exception`, so that guards that catch every ordinary failure
/// let it pass.
struct TaskExit {
  static constexpr int kill_rank = 100;
  static constexpr bool spares_unstarted = false;
};

/// What a kill raises in its target. One is pending at a time: of two that arrive before it is raised, the one of
/// higher rank stays, and of equal ones the first. An exception type that is used in kills has the members
/// `kill_rank` and `spares_unstarted`.
struct Kill {
  std::exception_ptr exception;
  int rank = 0;
  bool spares_unstarted = false;  ///< a task that has not run yet is left alone

  template <class Exception>
  static Kill with() {
    return {std::make_exception_ptr(Exception()), Exception::kill_rank, Exception::spares_unstarted};
  }
};

/// A spawned coroutine, or none. A handle: copies mean the same task, and dropping the last one does not end the task.
/// Every task has an owner that kills it and outlives it.
class Task {
 public:
  Task() noexcept;
  explicit Task(boost::intrusive_ptr<TaskState> state) noexcept;
  Task(const Task&) noexcept;
  Task(Task&&) noexcept;
  Task& operator=(const Task&) noexcept;
  Task& operator=(Task&&) noexcept;
  ~Task();

  /// Whether a task is held, ended or not.
  explicit operator bool() const noexcept { return state_ != nullptr; }
  /// Whether the task has ended; true when none is held.
  bool dead() const noexcept;

  /// Raises the exception at the wait that the task is in, even if that wait's result is already on its way, and
  /// returns at once. A task that has not run yet never runs, unless the kill spares it; a dead task is left alone; a
  /// task that has caught an earlier kill can be killed again; inside a `KillShield` the exception is kept for the next
  /// wait after it.
  void kill(const Kill& kill = Kill::with<TaskExit>()) const;

  /// Waits until the task has ended, however it ends. Its failure is not raised here.
  Async<> wait() const;

  /// `kill`, then `wait`.
  Async<> kill_and_wait(Kill kill = Kill::with<TaskExit>()) const;

 private:
  boost::intrusive_ptr<TaskState> state_;
};

/// Starts a task on the current loop; it first runs when the caller yields. A failure that leaves the body is given to
/// the loop's failure handler; `TaskExit` ends a task silently.
Task spawn(std::string name, Async<> body);

/// Kills every task without waiting for any.
void kill_all(std::span<const Task> tasks);

/// While it lives, kills of the running task are kept back and raised at the first wait after it. It belongs to the
/// coroutine that declares it and may live across waits.
class KillShield {
 public:
  KillShield();
  ~KillShield();
  KillShield(const KillShield&) = delete;
  KillShield& operator=(const KillShield&) = delete;

 private:
  boost::intrusive_ptr<TaskState> task_;
};

/// One wait of one task: the base of every awaiter of the loop. A derived class registers itself in `begin`, calls
/// `complete` once its condition holds, and withdraws in `cancel`. It lives in the waiting coroutine's frame.
///
/// `await_resume` of a derived class calls `finish` first: that is where a kill is raised.
class Wait {
 public:
  Wait() = default;
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;

  bool await_ready() const noexcept { return false; }
  bool await_suspend(std::coroutine_handle<> waiter);

 protected:
  ~Wait() = default;

  /// Registers for the condition. Returns false when it holds already and the task need not suspend.
  virtual bool begin() = 0;
  /// Withdraws the registration because of a kill. Returns false when the wait still ends through `complete` (an
  /// operation under way that borrows memory of this wait); the task is not resumed before.
  virtual bool cancel() noexcept = 0;

  /// The condition holds: the task runs again soon, never inside this call. Once per `begin`.
  void complete() noexcept;
  /// Raises the pending kill, if there is one.
  void finish();
  /// Whether `finish` is going to raise. A wait whose result must not get lost gives it back then.
  bool killed() const noexcept;
  /// Whether the task is suspended here and neither completed nor cancelled.
  bool waiting() const noexcept { return waiting_; }

 private:
  friend class TaskState;
  TaskState* task_ = nullptr;
  bool waiting_ = false;
};

/// A wait until nothing else is ready: requests that have arrived are answered first, for a limited number of rounds.
/// For work that is long but never waits.
class YieldWait final : public Wait {
 public:
  void await_resume() { finish(); }

 private:
  bool begin() override;
  bool cancel() noexcept override { return false; }
};
inline YieldWait yield_to_others() { return {}; }

}  // namespace weir

namespace weir {
void intrusive_ptr_add_ref(TaskState* state) noexcept;
void intrusive_ptr_release(TaskState* state) noexcept;
}  // namespace weir
