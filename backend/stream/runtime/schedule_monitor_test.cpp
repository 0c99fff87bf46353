#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "backend/stream/runtime/timetable.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

/// The process's time zone while it lives: one with summer time.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  ~TimeZone() {
    ::unsetenv("TZ");
    ::tzset();
  }
};

class ScheduleMonitorTest : public test::StreamFixture {
 protected:
  void run_on_input(int index) {
    world.choose_input = [index](int) { return index; };
    run_to_first_progress();
  }
  /// Moves on minute by minute with media time going on, so that only the timetable acts.
  void pass_minutes(int minutes) {
    for (int i = 0; i < minutes; ++i) {
      ++media_seconds;
      if (!world.child().status) {
        say(test::progress_line("0:00:" + std::to_string(media_seconds)));
      }
      world.loop.advance(60s);
    }
  }
  int media_seconds = 1;
};

TEST_F(ScheduleMonitorTest, RestartsInTheConfiguredMinute) {
  // The clock stands at midnight, a Thursday.
  conf->set_json_conf("input.restart", {{"hours", "4"}, {"weekdays", "0-6"}});
  run_on_input(0);
  pass_minutes(239);
  EXPECT_EQ(launches(), 1u);
  pass_minutes(3);
  EXPECT_EQ(launches(), 2u);
  EXPECT_EQ(std::ranges::count(world.log_lines, "info Stream 7 Lobby: Restarting according to the schedule"), 1);
}

TEST_F(ScheduleMonitorTest, ADutyWithoutWeekdaysIsOff) {
  conf->set_json_conf("input.restart", {{"minutes", "*"}, {"hours", "*"}, {"weekdays", ""}});
  run_on_input(0);
  pass_minutes(10);
  EXPECT_EQ(launches(), 1u);
}

TEST_F(ScheduleMonitorTest, SwitchesBackToTheBestInputThatAnswers) {
  conf->set_json_conf("input.switch", {{"minutes", "2-59"}, {"hours", "*"}, {"weekdays", "*"}});
  run_on_input(2);
  world.choose_input = [](int requested) { return requested; };
  pass_minutes(2);
  EXPECT_EQ(world.probes, (std::vector<std::string>{"-i 'udp://a'", "-i 'udp://b'"}));
  EXPECT_EQ(launches(), 1u);
  world.probe_answers["-i 'udp://b'"] = true;
  pass_minutes(1);
  EXPECT_EQ(world.child().command.back(), "1");
  EXPECT_TRUE(logged("info Stream 7 Lobby: Switching to priority URL #1 udp://b"));
}

TEST_F(ScheduleMonitorTest, ASlowProbeSkipsMinutes) {
  conf->set_json_conf("input.switch", {{"minutes", "*"}, {"hours", "*"}, {"weekdays", "*"}});
  world.probe_duration = 90s;
  run_on_input(1);
  pass_minutes(6);  // checks at 1:00, 3:30 and 6:00
  EXPECT_EQ(world.probes.size(), 3u);
}

TEST_F(ScheduleMonitorTest, BothDutiesInOneMinuteGiveTheRestart) {
  const Value always = {{"minutes", "*"}, {"hours", "*"}, {"weekdays", "*"}};
  conf->set_json_conf("input.switch", always);
  conf->set_json_conf("input.restart", always);
  world.probe_answers["-i 'udp://a'"] = true;
  run_on_input(1);
  pass_minutes(1);
  EXPECT_TRUE(world.probes.empty());
  EXPECT_TRUE(logged("Restarting according to the schedule"));
}

TEST_F(ScheduleMonitorTest, ReportsATimetableThatCannotBeRead) {
  conf->set_json_conf("input.restart.hours", "four");
  run_on_input(0);
  EXPECT_TRUE(logged("ValueError: invalid number \"four\""));
  EXPECT_EQ(status(), "running");
}

TEST(TimetableTest, ActsOnceInEveryConfiguredMinuteOfAYear) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  JsonConf conf;
  conf.set_json_conf("restart", {{"minutes", "30"}, {"hours", "2,4"}, {"weekdays", "6"}});
  const Timetable timetable = read_timetable(conf, "restart");
  int matches = 0;
  std::vector<std::string> odd_days;
  int matches_of_day = 0;
  int day = -1;
  // 2026, minute by minute, from local midnight.
  for (WallTime time = WallTime(std::chrono::seconds(1767222000)); time < WallTime(std::chrono::seconds(1798758000));
       time += 60s) {
    const std::tm local = local_time(time);
    if (local.tm_yday != std::exchange(day, local.tm_yday)) matches_of_day = 0;
    if (!timetable.matches(local)) continue;
    ++matches;
    ++matches_of_day;
    if (matches_of_day == 3) odd_days.push_back(std::to_string(local.tm_mon + 1) + "-" + std::to_string(local.tm_mday));
  }
  // 52 Sundays, twice each; 02:30 does not exist on 29 March and comes twice on 25 October.
  EXPECT_EQ(matches, 104);
  EXPECT_EQ(odd_days, std::vector<std::string>{"10-25"});
}

}  // namespace
}  // namespace weir
