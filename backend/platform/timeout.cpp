#include "backend/platform/timeout.h"

#include <exception>
#include <memory>
#include <utility>

#include "backend/platform/sleep.h"
#include "backend/platform/task.h"

namespace weir {

namespace {

struct Outcome {
  bool timed_out = false;
  std::exception_ptr failure;
};

struct KilledAtScopeEnd {
  Task task;
  ~KilledAtScopeEnd() { task.kill(); }
};

Async<> keep_failure(Async<> body, std::shared_ptr<Outcome> outcome) {
  try {
    co_await body;
  } catch (const std::exception&) {
    outcome->failure = std::current_exception();
  }
}

Async<> kill_after(Task task, std::chrono::nanoseconds limit, std::shared_ptr<Outcome> outcome) {
  co_await sleep(limit);
  outcome->timed_out = !task.dead();
  task.kill();
}

}  // namespace

Async<bool> run_at_most(std::string name, Async<> body, std::chrono::nanoseconds limit) {
  const auto outcome = std::make_shared<Outcome>();
  const KilledAtScopeEnd work{spawn(name, keep_failure(std::move(body), outcome))};
  const KilledAtScopeEnd timer{spawn(name + " (time limit)", kill_after(work.task, limit, outcome))};
  co_await work.task.wait();
  if (outcome->failure) std::rethrow_exception(outcome->failure);
  co_return !outcome->timed_out;
}

}  // namespace weir
