#include "backend/platform/loop.h"

#include <fmt/core.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "backend/platform/directory_watch.h"
#include "backend/platform/failure.h"
#include "backend/platform/poller.h"
#include "backend/platform/task_state.h"

namespace weir {

namespace asio = boost::asio;

namespace {

Loop* current_loop = nullptr;

constexpr std::chrono::milliseconds max_round{5};

// Between two steps of a request (bytes arrived, read, answered) there are rounds in which no task runs.
constexpr int idle_rounds = 4;
constexpr int max_yield_rounds = 200;

void print_failure(std::string_view task, const std::exception_ptr& failure) {
  fmt::print(stderr, "{}\n", format_traceback(failure, task));
}

}  // namespace

struct Loop::RealTimer {
  explicit RealTimer(asio::io_context& context) : timer(context) {}
  asio::steady_timer timer;
  bool expiring = false;
};

Loop::Loop(std::unique_ptr<Clock> clock)
    : context_(std::make_unique<asio::io_context>(1)),
      clock_(std::move(clock)),
      real_timer_(std::make_unique<RealTimer>(*context_)),
      poller_(std::make_unique<Poller>(*context_, timers_, *clock_)),
      failure_handler_(print_failure) {
  if (current_loop) throw std::logic_error("one event loop at a time");
  current_loop = this;
  timers_.on_earlier([this] {
    if (!real_timer_->expiring) arm_real_timer();
  });
}

Loop::~Loop() {
  destroy_tasks();
  if (helper_thread_) helper_thread_->join();
  directory_watcher_.reset();
  poller_.reset();
  real_timer_.reset();
  context_.reset();
  current_loop = nullptr;
}

Loop& Loop::current() { return *current_loop; }

void Loop::run() {
  const auto work = asio::make_work_guard(*context_);
  context_->restart();
  context_->run();
}

void Loop::stop() { context_->stop(); }

DirectoryWatcher& Loop::directory_watcher() {
  if (!directory_watcher_) directory_watcher_ = std::make_unique<DirectoryWatcher>();
  return *directory_watcher_;
}

asio::thread_pool& Loop::helper_thread() {
  if (!helper_thread_) helper_thread_ = std::make_unique<asio::thread_pool>(1);
  return *helper_thread_;
}

void Loop::schedule(TaskState& task) {
  intrusive_ptr_add_ref(&task);
  ready_.push_back(&task);
  post_drain();
}

// Runs the tasks that are ready now, for a few milliseconds at most: then I/O and timers have their turn before the
// rest, and before what these tasks make ready.
void Loop::run_ready() {
  drain_posted_ = false;
  idle_rounds_ = 0;
  TimePoint turn_begin = std::chrono::steady_clock::now();
  const TimePoint deadline = turn_begin + max_round;
  for (std::size_t count = ready_.size(); count > 0; --count) {
    TaskState* task = ready_.front();
    ready_.pop_front();
    task->run();
    intrusive_ptr_release(task);
    const TimePoint turn_end = std::chrono::steady_clock::now();
    turns_.record(turn_end - std::exchange(turn_begin, turn_end));
    if (turn_end > deadline) break;
  }
  if (!ready_.empty()) post_drain();
}

void Loop::yield(TaskState& task) {
  intrusive_ptr_add_ref(&task);
  yielded_.push_back(&task);
  post_yielded();
}

// In each round all handlers run that are ready, and I/O is looked at.
void Loop::run_yielded() {
  yielded_posted_ = false;
  ++yield_rounds_;
  if (++idle_rounds_ >= idle_rounds || yield_rounds_ >= max_yield_rounds) {
    yield_rounds_ = 0;
    ready_.push_back(yielded_.front());
    yielded_.pop_front();
    post_drain();
  }
  if (!yielded_.empty()) post_yielded();
}

void Loop::post_yielded() {
  if (std::exchange(yielded_posted_, true)) return;
  asio::post(*context_, [this] { run_yielded(); });
}

void Loop::post_drain() {
  if (std::exchange(drain_posted_, true)) return;
  asio::post(*context_, [this] { run_ready(); });
}

void Loop::arm_real_timer() {
  if (!clock_->runs()) return;
  const auto next = timers_.next();
  if (!next) return;
  real_timer_->timer.expires_at(*next);
  real_timer_->timer.async_wait([this](const boost::system::error_code& error) {
    if (error) return;
    const TimePoint begin = clock_->now();
    turns_.record_lag(begin - real_timer_->timer.expiry());
    real_timer_->expiring = true;
    timers_.expire(begin);
    real_timer_->expiring = false;
    turns_.record(clock_->now() - begin);
    arm_real_timer();
  });
}

void Loop::report(std::string_view task, const std::exception_ptr& failure) { failure_handler_(task, failure); }

// Destroys the coroutine frames before the objects that their destructors use.
void Loop::destroy_tasks() {
  while (!tasks_.empty()) {
    TaskState* task = *tasks_.begin();
    tasks_.erase(tasks_.begin());
    task->destroy();
    intrusive_ptr_release(task);
  }
  for (std::deque<TaskState*>* waiting : {&ready_, &yielded_}) {
    for (TaskState* task : *waiting) intrusive_ptr_release(task);
    waiting->clear();
  }
}

TimePoint now() { return Loop::current().clock().now(); }

long long wall_seconds() {
  const auto since_epoch = Loop::current().clock().wall().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(since_epoch).count();
}

}  // namespace weir
