#pragma once

#include <coroutine>
#include <exception>
#include <string>

#include "backend/platform/wait_queue.h"

namespace weir {

class Loop;

/// What a `Task` handle refers to. Shared by its handles and, until it is dead, by its loop.
class TaskState {
 public:
  TaskState(Loop& loop, std::string name, Async<> body);
  TaskState(const TaskState&) = delete;
  TaskState& operator=(const TaskState&) = delete;

  static TaskState* current() noexcept;

  const std::string& name() const noexcept { return name_; }
  bool dead() const noexcept { return dead_; }
  /// Whether a kill is to be raised at the next wait.
  bool kill_due() const noexcept { return pending_.exception && shields_ == 0; }
  [[noreturn]] void raise_kill();
  void kill(const Kill& kill);
  /// The tasks that wait for its end.
  WaitQueue& joiners() noexcept { return joiners_; }

  /// Runs from the last wait to the next one.
  void run();
  void suspend(std::coroutine_handle<> resume_point, Wait& wait) noexcept;
  void schedule() noexcept;
  void yield();
  /// Drops the coroutine without running it; for the end of the loop.
  void destroy();

 private:
  friend class KillShield;
  friend void intrusive_ptr_add_ref(TaskState* state) noexcept;
  friend void intrusive_ptr_release(TaskState* state) noexcept;

  struct Root;
  ~TaskState();
  Root run_body(Async<> body);
  void end();

  long references_ = 0;
  Loop& loop_;
  std::string name_;
  std::coroutine_handle<> root_;
  std::coroutine_handle<> resume_point_;
  Wait* wait_ = nullptr;
  Kill pending_;
  int shields_ = 0;
  bool started_ = false;
  bool dead_ = false;
  std::exception_ptr failure_;
  WaitQueue joiners_;
};

}  // namespace weir
