#include "backend/platform/timeout.h"

#include "backend/platform/sleep.h"
#include "backend/platform/task.h"

namespace weir {

namespace {

struct Killer {
  Task task;
  ~Killer() { task.kill(); }
};

Async<> kill_after(Task task, std::chrono::nanoseconds limit, bool& late) {
  co_await sleep(limit);
  late = !task.dead();
  task.kill();
}

}  // namespace

Async<bool> run_at_most(std::string name, Async<> body, std::chrono::nanoseconds limit) {
  const Killer work{spawn(name, std::move(body))};
  bool late = false;
  const Killer timer{spawn(name + " (time limit)", kill_after(work.task, limit, late))};
  co_await work.task.wait();
  co_return !late;
}

}  // namespace weir
