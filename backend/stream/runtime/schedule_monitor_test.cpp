#include "backend/base/time_text.h"
#include "backend/stream/runtime/timetable.h"
#include "tests/support/stream_fixture.h"
#include "tests/support/time_zone.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

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
      if (!world.child().status) say(test::progress_line("0:00:" + std::to_string(media_seconds)));
      world.loop.advance(60s);
    }
  }
  const test::TimeZone utc{"UTC0"};
  int media_seconds = 1;
};

TEST_F(ScheduleMonitorTest, SwitchesBackToTheBestInputThatAnswers) {
  ASSERT_TRUE(conf->set_json_conf("input.switch", {{"minutes", "2-59"}, {"hours", "*"}, {"weekdays", "*"}}));
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

TEST(NextTimeTest, IsTheNextMinuteThatTheMonitorWouldActAtAlsoWhereSummerTimeBeginsAndEnds) {
  const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
  using Case = std::tuple<const char*, Value, const char*, const char*>;  // zone, timetable, from, next
  const Value at_half_past_two = {{"minutes", "30"}, {"hours", "2"}, {"weekdays", "*"}};
  for (const auto& [zone, table, from, next] : {
           Case{"UTC0", at_half_past_two, "2026-11-23T02:30:00.000Z", "2026-11-24T02:30:00.000Z"},
           Case{"UTC0", {{"hours", "*"}, {"weekdays", "*"}}, "2026-11-23T23:00:01.000Z", "2026-11-24T00:00:00.000Z"},
           Case{"UTC0", {{"hours", "4"}, {"weekdays", "0"}}, "2026-11-23T05:00:00.000Z", "2026-11-30T04:00:00.000Z"},
           Case{"UTC0", {{"hours", "30"}, {"weekdays", "0"}}, "2026-11-23T05:00:00.000Z", "never"},
           Case{berlin, at_half_past_two, "2026-03-28T02:00:00.000Z", "2026-03-30T00:30:00.000Z"},
           Case{berlin, at_half_past_two, "2026-10-25T00:00:00.000Z", "2026-10-25T00:30:00.000Z"},
           Case{berlin, at_half_past_two, "2026-10-25T00:30:00.000Z", "2026-10-25T01:30:00.000Z"},
           Case{berlin, at_half_past_two, "2026-10-25T01:30:00.000Z", "2026-10-26T01:30:00.000Z"},
       }) {
    const test::TimeZone in(zone);
    JsonConf conf;
    conf.replace_document({{"restart", table}});
    std::tm utc{};
    const double seconds = std::atof(::strptime(from, "%FT%T", &utc));
    const WallTime time =
        WallTime(std::chrono::seconds(::timegm(&utc))) + std::chrono::milliseconds(static_cast<int>(1000 * seconds));
    const auto found = next_time(read_timetable(conf, "restart"), time);
    EXPECT_EQ(found ? to_iso8601(*found) : "never", next) << zone << " " << from << " " << table;
  }
}

}  // namespace
}  // namespace weir
