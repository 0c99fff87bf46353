#include <fmt/core.h>
#include <signal.h>

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
      world.loop.advance(1min);
    }
  }
  void note(std::string_view what) {
    const auto now = std::chrono::floor<std::chrono::seconds>(world.loop.clock().wall().time_since_epoch());
    journal.push_back(fmt::format("{} {}", clock_time(now.count()), what));
  }
  const test::TimeZone utc{"UTC0"};
  Lines journal;
  long long media_seconds = 0;
};

const Lines expected{
    "00:00:00 launch 0",
    // The timetable.
    "04:00:00 Restarting according to the schedule",
    "04:00:00 launch 0",
    // Media time stands still from 07:59 on; input 0 is gone.
    "08:03:00 URL #0 udp://a is timeout",
    "08:03:00 launch 1",
    // Half the speed from 12:00 on.
    "12:03:30 Speed 0.5x is too fast or slow",
    "12:03:30 launch 1",
    // 600 MiB from 16:00 on, 50 at first.
    "16:00:02 System memory usage is exceeded the 562 MiB limits",
    "16:00:02 launch 1",
    // Input 0 answers again from 20:00 on.
    "20:00:02 Switching to priority URL #0 udp://a",
    "20:00:02 launch 0",
    // Three transcoders in a row end at once.
    "22:00:03 launch 0",
    "22:00:06 launch 0",
    "22:00:09 launch 0",
};

TEST_F(DayTest, WhatGoesWrongInADayIsActedOnInOrder) {
  start();
  world.loop.advance(10ms);
  pass(8 * 60);
  world.choose_input = [](int requested) { return requested == 0 ? 1 : requested; };
  world.loop.advance(4min);
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
    world.loop.advance(3010ms);
  }
  pass(60);
  stop();
  world.loop.advance(10min);
  EXPECT_EQ(status(), "stopped");
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
