#include <fmt/core.h>
#include <signal.h>

#include <ranges>

#include "tests/support/stream_fixture.h"
#include "tests/support/time_zone.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

/// A day in the life of a stream, from midnight on the movable clock: a restart at 04:00 and a look for better inputs
/// every half hour are in its timetables.
class DayTest : public test::StreamFixture {
 protected:
  DayTest() {
    EXPECT_TRUE(conf->set_json_conf("input.restart", {{"hours", "4"}, {"weekdays", "0-6"}}));
    EXPECT_TRUE(conf->set_json_conf("input.switch", {{"minutes", "0,30"}, {"hours", "0-23"}, {"weekdays", "0-6"}}));
    world.on_launch = [this](const test::ChildScript& script) { note("launch " + script.command.back()); };
    set_log_sink([this](LogLevel, std::string_view, std::string_view text) { note(std::string(text)); });
  }

  static std::string clock_time(long long seconds) {
    return fmt::format("{:02}:{:02}:{:02}", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
  }
  /// Media time goes on.
  void pass(int minutes, std::string_view speed = "1.00x") {
    for (int i = 0; i < minutes; ++i) {
      media_seconds += 60;
      say(test::progress_line(clock_time(media_seconds) + ".00", speed));
      pass_quietly(1min);
    }
  }
  void pass_quietly(std::chrono::milliseconds duration) {
    observe();
    world.loop.advance(duration);
    observe();
  }
  void note(std::string_view what) {
    observe();
    record(what);
  }
  void record(std::string_view what) {
    const auto now = std::chrono::floor<std::chrono::seconds>(world.loop.clock().wall().time_since_epoch());
    journal.push_back(fmt::format("{} {}", clock_time(now.count()), what));
  }
  // What a cycle's end leaves, in its order: the group is killed before the status is changed.
  void observe() {
    signals_seen.resize(launches());
    for (std::size_t i = 0; i < launches(); ++i) {
      const auto& signals = world.children[i]->signals;
      for (; signals_seen[i] < signals.size(); ++signals_seen[i])
        record(fmt::format("kill {}", world.children[i]->pid));
    }
    if (stream->get_status().is_null() || status() == std::exchange(last_status, status())) return;
    record("status " + last_status);
  }

  const test::TimeZone utc{"UTC0"};
  Lines journal;  ///< of two statuses in one instant the second is seen
  std::string last_status;
  std::vector<std::size_t> signals_seen;
  long long media_seconds = 0;
};

const Lines expected{
    "00:00:00 status starting",
    "00:00:00 launch 0",
    "00:00:00 status running",
    // The timetable.
    "04:00:00 Restarting according to the schedule",
    "04:00:00 kill 1000",
    "04:00:00 status restarting",
    "04:00:00 launch 0",
    "04:00:00 status running",
    // Media time stands still from 07:59 on; input 0 is gone.
    "08:03:00 URL #0 udp://a is timeout",
    "08:03:00 kill 1001",
    "08:03:00 status restarting",
    "08:03:00 launch 1",
    "08:04:00 status running",
    // Half the speed from 12:00 on.
    "12:03:30 Speed 0.5x is too fast or slow",
    "12:03:30 kill 1002",
    "12:03:30 status restarting",
    "12:03:30 launch 1",
    "12:04:00 status running",
    // 600 MiB from 16:00 on, 50 at first.
    "16:00:02 System memory usage is exceeded the 562 MiB limits",
    "16:00:02 kill 1003",
    "16:00:02 status restarting",
    "16:00:02 launch 1",
    "16:01:00 status running",
    // Input 0 answers again from 20:00 on.
    "20:00:02 Switching to priority URL #0 udp://a",
    "20:00:02 kill 1004",
    "20:00:02 status restarting",
    "20:00:02 launch 0",
    "20:01:00 status running",
    // Three transcoders in a row end at once.
    "22:00:00 kill 1005",
    "22:00:00 status restarting",
    "22:00:03 launch 0",
    "22:00:03 kill 1006",
    "22:00:06 launch 0",
    "22:00:06 kill 1007",
    "22:00:09 launch 0",
    "22:00:09 status running",
    "23:00:09 kill 1008",
    "23:00:09 status stopped",
};

TEST_F(DayTest, WhatGoesWrongInADayIsActedOnInOrder) {
  start();
  world.loop.advance(10ms);
  pass(8 * 60);
  world.choose_input = [](int requested) { return requested == 0 ? 1 : requested; };
  pass_quietly(4min);
  pass(4 * 60 - 4);
  pass(5, "0.5x");
  pass(4 * 60 - 5);
  world.child().rss = 600 << 20;
  pass(4 * 60);
  world.choose_input = [](int requested) { return requested; };
  world.probe_answers["-i 'udp://a'"] = true;
  pass(2 * 60);
  for (int i = 0; i < 3; ++i) {
    world.child().exit(1);
    world.loop.settle();
    pass_quietly(3010ms);
  }
  pass(60);
  stop();
  pass_quietly(10min);
  EXPECT_EQ(journal, expected) << testing::PrintToString(Lines(journal.end() - 8, journal.end()));
  for (const auto& child : world.children) {
    EXPECT_TRUE(child->reaped) << child->pid;
    EXPECT_EQ(child->signals, std::vector<int>{SIGKILL}) << child->pid;
  }
  // Each half hour on input 1, but for 16:00: the restart came before that minute was looked at.
  EXPECT_EQ(world.probes, Lines(23, "-i 'udp://a'"));
  EXPECT_TRUE(world.loop.failures.empty());
}

}  // namespace
}  // namespace weir
