#include "backend/platform/task.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <stdexcept>

#include "backend/platform/semaphore.h"
#include "backend/platform/sleep.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using Log = std::vector<std::string>;

struct Restart : std::exception {
  static constexpr int kill_rank = 1;
  static constexpr bool spares_unstarted = true;
};
struct Stop : std::exception {
  static constexpr int kill_rank = 2;
  static constexpr bool spares_unstarted = false;
};

Async<> note(Log& log, std::string text) {
  log.push_back(std::move(text));
  co_return;
}

// Sleeps a second at a time and survives every restart.
Async<> survive_restarts(Log& log) {
  for (;;) {
    try {
      co_await sleep(1s);
      log.push_back("tick");
    } catch (const Restart&) {
      log.push_back("restart");
    } catch (const Stop&) {
      log.push_back("stop");
      co_return;
    }
  }
}

Async<> hold(Semaphore& semaphore, std::chrono::seconds duration) {
  const auto guard = co_await semaphore.acquire();
  if (duration == 0s) throw std::runtime_error("failed");
  co_await sleep(duration);
}

class TaskTest : public testing::Test {
 protected:
  test::TestLoop loop;
  Log log;
};

TEST_F(TaskTest, AYieldedTaskGoesOnAfterTheStepsOfOthersUnlessTheyAreVeryMany) {
  const auto yield = [](Log& lines, std::string name) -> Async<> {
    co_await yield_to_others();
    lines.push_back(name);
    co_await yield_to_others();
  };
  const auto begin = [](Log& lines) -> Async<> {
    const Task inner = spawn("inner", note(lines, "first"));
    co_await inner.wait();
  };
  const auto follow = [](Log& lines, Task before) -> Async<> {
    co_await before.wait();
    lines.push_back("step");
  };
  for (const int steps : {10, 1000}) {
    log.clear();
    const Task yielded = spawn("yielded", yield(log, "yielded"));
    const Task killed = spawn("killed", yield(log, "killed"));
    Task step = spawn("first", begin(log));
    for (int i = 0; i < steps; ++i) step = spawn("step", follow(log, step));
    loop.context().poll_one();
    killed.kill();
    loop.settle();
    EXPECT_TRUE(yielded.dead() && killed.dead());
    EXPECT_EQ(std::ranges::count(log, "killed"), 0);
    EXPECT_EQ(log.back() == "yielded", steps == 10) << steps;
  }
}

TEST_F(TaskTest, KilledBeforeItsFirstRunNeverRunsUnlessTheKillSparesIt) {
  for (const Kill& kill : {Kill::with<TaskExit>(), Kill::with<Stop>(), Kill::with<Restart>()}) {
    log.clear();
    const Task task = spawn("task", note(log, "ran"));
    task.kill(kill);
    EXPECT_EQ(task.dead(), !kill.spares_unstarted);
    loop.settle();
    EXPECT_EQ(log, kill.spares_unstarted ? Log{"ran"} : Log{});
  }
}

TEST_F(TaskTest, KillIsRaisedEvenWhenTheResultIsOnItsWay) {
  Semaphore lock(1);
  const auto waiter = [](Semaphore& semaphore, Log& entries) -> Async<> {
    const auto guard = co_await semaphore.acquire();
    entries.push_back("acquired");
  };
  spawn("holder", hold(lock, 1s));
  const Task task = spawn("waiter", waiter(lock, log));
  const auto killer = [](Task target) -> Async<> {
    co_await sleep(1s);
    target.kill();  // in the round in which the holder hands the permit over
  };
  spawn("killer", killer(task));
  loop.advance(1100ms);
  EXPECT_EQ(log, Log{});
  spawn("next", waiter(lock, log));
  loop.settle();
  EXPECT_EQ(log, Log{"acquired"}) << "the permit of the killed waiter was lost";
}

TEST_F(TaskTest, OneKillIsPendingAndTheStrongerStays) {
  using Case = std::pair<std::vector<Kill>, Log>;
  const Kill restart = Kill::with<Restart>();
  const Kill stop = Kill::with<Stop>();
  for (const auto& [kills, expected] : {Case{{restart, restart}, {"restart"}}, Case{{restart, stop}, {"stop"}},
                                        Case{{stop, restart}, {"stop"}}, Case{{stop, restart, stop}, {"stop"}}}) {
    log.clear();
    const Task task = spawn("task", survive_restarts(log));
    loop.settle();
    for (const Kill& kill : kills) task.kill(kill);
    loop.settle();
    EXPECT_EQ(log, expected);
    task.kill(Kill::with<Stop>());
    loop.settle();
  }
}

TEST_F(TaskTest, GuardIsReleasedWhenItsHolderIsKilledOrFails) {
  Semaphore lock(1);
  const Task killed = spawn("killed", hold(lock, 1h));
  spawn("failing", hold(lock, 0s));
  Task last = spawn("last", hold(lock, 1h));
  const Task waiter = spawn("killed waiter", hold(lock, 1h));
  loop.settle();
  waiter.kill();
  killed.kill();
  loop.settle();
  EXPECT_TRUE(killed.dead());
  EXPECT_FALSE(last.dead());
  last.kill();
  loop.settle();
  ASSERT_EQ(loop.failures.size(), 1U);
  EXPECT_NE(loop.failures[0].find("task failing"), std::string::npos);
  loop.run([](Semaphore& semaphore) -> Async<> { const auto guard = co_await semaphore.acquire(); }(lock));
}

}  // namespace
}  // namespace weir
