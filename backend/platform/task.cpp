#include "backend/platform/task.h"

#include <utility>

#include "backend/platform/failure.h"
#include "backend/platform/loop.h"
#include "backend/platform/task_state.h"

namespace weir {

namespace {

TaskState* running_task = nullptr;

}  // namespace

std::string_view current_task_name() noexcept {
  return running_task ? std::string_view(running_task->name()) : std::string_view();
}

// --- TaskState ---

/// The outermost coroutine of a task. It never throws: the state keeps the failure.
struct TaskState::Root {
  struct promise_type {
    Root get_return_object() noexcept { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_always initial_suspend() const noexcept { return {}; }
    std::suspend_always final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const noexcept { std::terminate(); }
  };
  std::coroutine_handle<> frame;
};

TaskState::TaskState(Loop& loop, std::string name, Async<> body)
    : loop_(loop), name_(std::move(name)), root_(run_body(std::move(body)).frame) {
  intrusive_ptr_add_ref(this);  // the loop's share, given back by end()
  loop_.tasks_.insert(this);
  schedule();
}

TaskState::~TaskState() = default;

TaskState* TaskState::current() noexcept { return running_task; }

TaskState::Root TaskState::run_body(Async<> body) {
  try {
    co_await body;
  } catch (const TaskExit&) {
  } catch (...) {
    failure_ = std::current_exception();
  }
}

void TaskState::raise_kill() { std::rethrow_exception(std::exchange(pending_, Kill{}).exception); }

void TaskState::kill(const Kill& kill) {
  if (dead_) return;
  if (!started_) {
    if (!kill.spares_unstarted) end();
    return;
  }
  if (!pending_.exception || kill.rank > pending_.rank) pending_ = kill;
  if (shields_ > 0 || !wait_ || !wait_->waiting_) return;
  if (wait_->cancel()) {
    wait_->waiting_ = false;
    schedule();
  }
}

void TaskState::run() {
  if (dead_) return;
  const std::coroutine_handle<> next = started_ ? resume_point_ : root_;
  started_ = true;
  wait_ = nullptr;
  running_task = this;
  next.resume();
  running_task = nullptr;
  if (root_.done()) end();
}

void TaskState::suspend(std::coroutine_handle<> resume_point, Wait& wait) noexcept {
  resume_point_ = resume_point;
  wait_ = &wait;
}

void TaskState::schedule() noexcept { loop_.schedule(*this); }

void TaskState::yield() { loop_.yield(*this); }

void TaskState::end() {
  const boost::intrusive_ptr<TaskState> keep(this);
  destroy();
  loop_.tasks_.erase(this);
  intrusive_ptr_release(this);
  joiners_.wake_all();
  if (failure_) loop_.report(name_, failure_);
}

void TaskState::destroy() {
  dead_ = true;
  if (root_) std::exchange(root_, nullptr).destroy();
}

void intrusive_ptr_add_ref(TaskState* state) noexcept { ++state->references_; }

void intrusive_ptr_release(TaskState* state) noexcept {
  if (--state->references_ == 0) delete state;
}

// --- Wait ---

bool Wait::await_suspend(std::coroutine_handle<> waiter) {
  task_ = running_task;
  if (task_->kill_due()) return false;
  if (!begin()) return false;
  waiting_ = true;
  task_->suspend(waiter, *this);
  return true;
}

void Wait::complete() noexcept {
  waiting_ = false;
  task_->schedule();
}

void Wait::finish() {
  if (killed()) task_->raise_kill();
}

bool Wait::killed() const noexcept { return task_ && task_->kill_due(); }

// --- YieldWait ---

bool YieldWait::begin() {
  TaskState::current()->yield();
  return true;
}

// --- Task ---

Task::Task() noexcept = default;
Task::Task(boost::intrusive_ptr<TaskState> state) noexcept : state_(std::move(state)) {}
Task::Task(const Task&) noexcept = default;
Task::Task(Task&&) noexcept = default;
Task& Task::operator=(const Task&) noexcept = default;
Task& Task::operator=(Task&&) noexcept = default;
Task::~Task() = default;

bool Task::dead() const noexcept { return !state_ || state_->dead(); }

void Task::kill(const Kill& kill) const {
  if (state_) state_->kill(kill);
}

Async<> Task::wait() const {
  const Task task = *this;
  if (!task.dead()) co_await task.state_->joiners().wait();
}

Async<> Task::kill_and_wait(Kill kill) const {
  const Task task = *this;
  task.kill(kill);
  co_await task.wait();
}

Task spawn(std::string name, Async<> body) {
  return Task(boost::intrusive_ptr<TaskState>(new TaskState(Loop::current(), std::move(name), std::move(body))));
}

void kill_all(std::span<const Task> tasks) {
  for (const Task& task : tasks) task.kill();
}

// --- KillShield ---

KillShield::KillShield() : task_(TaskState::current()) {
  if (task_) ++task_->shields_;
}

KillShield::~KillShield() {
  if (task_) --task_->shields_;
}

}  // namespace weir
