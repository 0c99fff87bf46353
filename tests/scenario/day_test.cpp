#include "tests/scenario/day.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace weir {
namespace {

using Lines = std::vector<std::string>;

const Lines expected{
    "00:00:00 status starting",
    "00:00:00 launch 0",
    "00:00:00 status running",
    // The timetable.
    "04:00:00 info Restarting according to the schedule",
    "04:00:00 kill 1000",
    "04:00:00 status restarting",
    "04:00:00 launch 0",
    "04:00:00 status running",
    // Media time stands still from 07:59 on; input 0 is gone.
    "08:03:00 warning URL #0 udp://a is timeout",
    "08:03:00 kill 1001",
    "08:03:00 status restarting",
    "08:03:00 launch 1",
    "08:04:00 status running",
    // Half the speed from 12:00 on.
    "12:03:30 warning Speed 0.5x is too fast or slow",
    "12:03:30 kill 1002",
    "12:03:30 status restarting",
    "12:03:30 launch 1",
    "12:04:00 status running",
    // 600 MiB from 16:00 on, 50 at first.
    "16:00:02 warning System memory usage is exceeded the 562 MiB limits",
    "16:00:02 kill 1003",
    "16:00:02 status restarting",
    "16:00:02 launch 1",
    "16:01:00 status running",
    // Input 0 answers again from 20:00 on.
    "20:00:02 info Switching to priority URL #0 udp://a",
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

TEST(DayTest, WhatGoesWrongInADayIsActedOnInOrder) {
  test::Day day;
  day.live();
  EXPECT_EQ(day.journal, expected) << testing::PrintToString(Lines(day.journal.end() - 8, day.journal.end()));
  for (const auto& child : day.world.children) {
    EXPECT_TRUE(child->reaped) << child->pid;
    EXPECT_EQ(child->signals, std::vector<int>{SIGKILL}) << child->pid;
  }
  // Each half hour on input 1, but for 16:00: the restart came before that minute was looked at.
  EXPECT_EQ(day.world.probes, Lines(23, "-i 'udp://a'"));
  EXPECT_TRUE(day.world.loop.failures.empty());
}

}  // namespace
}  // namespace weir
