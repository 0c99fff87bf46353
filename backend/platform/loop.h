#pragma once

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_set>

#include "backend/platform/clock.h"
#include "backend/platform/timers.h"
#include "backend/platform/turn_times.h"

namespace boost::asio {
class io_context;
class thread_pool;
}  // namespace boost::asio

namespace weir {

class DirectoryWatcher;
class Poller;
class TaskState;

/// The event loop of the process: everything runs on its one thread, as tasks that give up control only where they
/// wait. It owns the Asio context (so that Beast lives on the same loop), the table of timers, the poller of pipes and
/// the one inotify instance.
class Loop {
 public:
  using FailureHandler = std::function<void(std::string_view task, const std::exception_ptr&)>;

  /// Makes itself the current loop until its end; one at a time. The clock is the loop's, not the process's.
  explicit Loop(std::unique_ptr<Clock> clock = std::make_unique<SystemClock>());
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  static Loop& current();

  /// Runs tasks and serves waits until `stop`.
  void run();
  void stop();

  Clock& clock() noexcept { return *clock_; }
  Timers& timers() noexcept { return timers_; }
  Poller& poller() noexcept { return *poller_; }
  DirectoryWatcher& directory_watcher();
  boost::asio::io_context& context() noexcept { return *context_; }
  /// For how long tasks, timers and pipes held the loop, in real time.
  TurnTimes& turns() noexcept { return turns_; }
  /// One thread for blocking calls; see `on_helper_thread`.
  boost::asio::thread_pool& helper_thread();

  /// Called with failures that leave a task's body, `TaskExit` excepted. Unless set, the traceback goes to standard
  /// error.
  void on_unhandled_failure(FailureHandler handler) { failure_handler_ = std::move(handler); }

 private:
  friend class TaskState;

  struct RealTimer;

  void schedule(TaskState& task);
  void run_ready();
  void post_drain();
  /// The task goes on once no other has run for some rounds; yielded ones go on one at a time.
  void yield(TaskState& task);
  void run_yielded();
  void post_yielded();
  void arm_real_timer();
  void report(std::string_view task, const std::exception_ptr& failure);
  void destroy_tasks();

  std::unique_ptr<boost::asio::io_context> context_;
  std::unique_ptr<Clock> clock_;
  Timers timers_;
  std::unique_ptr<RealTimer> real_timer_;
  std::unique_ptr<Poller> poller_;
  std::unique_ptr<DirectoryWatcher> directory_watcher_;
  std::unique_ptr<boost::asio::thread_pool> helper_thread_;
  std::unordered_set<TaskState*> tasks_;
  std::deque<TaskState*> ready_;
  bool drain_posted_ = false;
  std::deque<TaskState*> yielded_;
  bool yielded_posted_ = false;
  int idle_rounds_ = 0;   ///< in which no task ran
  int yield_rounds_ = 0;  ///< since a yielded task went on
  TurnTimes turns_;
  FailureHandler failure_handler_;
};

}  // namespace weir
