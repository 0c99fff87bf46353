#include "backend/web/now/now_members.h"

#include "backend/web/now/cycle_member.h"
#include "tests/support/stream_fixture.h"
#include "tests/support/time_zone.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class NowMembersTest : public test::StreamFixture {
 protected:
  Value member(const RecordMember& member) const {
    std::string json;
    member.append(json, *stream);
    return Value::parse(json);
  }
  std::string state(const char* name) { return to_json(member(cycle).at(name)); }

  const test::TimeZone utc{"UTC0"};
  CycleMember cycle_member;
  RecordMember cycle = cycle_member.make();
};

TEST_F(NowMembersTest, TheCycleSaysWhatTheStreamDoesAndHowTheLastOneEnded) {
  EXPECT_EQ(state("state") + state("since"), R"("stopped"null)");
  run_to_first_progress();
  EXPECT_EQ(to_json(member(cycle)), R"({"number":1,"state":"running","since":"2019-12-20T00:00:00.010Z","input":0,)"
                                    R"("preferred":true,"next_launch":null,"last_end":null})");
  world.loop.advance(12s);
  world.child().exit(1);
  world.choose_input = [](int) { return 2; };
  world.loop.advance(1s);
  const Value between = member(cycle);
  EXPECT_EQ(between.at("state"), "restarting");
  EXPECT_NEAR(between.at("next_launch").get<double>(), 2, 0.1);
  EXPECT_EQ(between.at("last_end").at("exit_status"), 1);
  EXPECT_NEAR(between.at("last_end").at("on_air_seconds").get<double>(), 12, 0.1);
  world.loop.advance(3s);
  EXPECT_EQ(state("number") + state("state") + state("input") + state("preferred"), R"(2"starting"2false)");
  cycle_member.on_waits([](const Stream& asked) { return asked.id == 7; });
  EXPECT_EQ(state("state"), R"("waiting")");
  say(test::progress_line("00:00:01.00"));
  EXPECT_EQ(state("state"), R"("running")");
  restart(1);
  world.loop.settle();
  EXPECT_EQ(member(cycle).at("last_end").at("cause"), "operator");
  stop();
  EXPECT_EQ(state("state"), R"("stopped")");
}

TEST_F(NowMembersTest, InputsShowWhichIsInUseAndWhatTheirProbesTold) {
  const RecordMember inputs = make_inputs_member();
  ASSERT_TRUE(conf->set_json_conf("input.0.url", "rtmp://u:secret@a"));
  world.choose_input = [](int) { return 1; };
  run_to_first_progress();
  stream->note_input({.index = 0, .answers = false, .reason = "Connection refused", .time = WallTime(1s)});
  EXPECT_EQ(to_json(member(inputs)),
            R"([{"url":"rtmp://u:***@a","in_use":false,"preferred":true,"probe":{"answers":false,)"
            R"("time":"1970-01-01T00:00:01.000Z","reason":"Connection refused"}},)"
            R"({"url":"udp://b","in_use":true,"preferred":false,"probe":null},)"
            R"({"url":"udp://c","in_use":false,"preferred":false,"probe":null}])");
  ASSERT_TRUE(conf->set_json_conf("input.0.url", "udp://other"));
  EXPECT_EQ(member(inputs).at(0).at("probe"), nullptr);
}

TEST_F(NowMembersTest, LimitsAreThoseOfTheRunningCycle) {
  const RecordMember limits = make_limits_member({.per_stream = 5});
  const Value none = member(limits);
  EXPECT_EQ(none.at("viewers").at("per_stream"), 5);
  ASSERT_TRUE(conf->set_json_conf("min_speed", "0.8"));
  ASSERT_TRUE(conf->set_json_conf("max_gpu_mem", "4000"));
  run_to_first_progress();
  EXPECT_EQ(member(limits).at("speed").at("min"), 0.8);
  EXPECT_EQ(member(limits).at("memory_mib"), nullptr) << "not learned yet";
  say(test::progress_line("00:00:11.00"));
  world.loop.advance(5s);
  EXPECT_EQ(member(limits).at("memory_mib"), 562);
  EXPECT_EQ(member(limits).at("gpu_memory_mib"), 4000);
  stop();
  EXPECT_EQ(member(limits), none);
}

TEST_F(NowMembersTest, TheTimetableFollowsTheDocument) {
  const RecordMember timetable = make_timetable_member();
  EXPECT_EQ(to_json(member(timetable)), R"({"restart":null,"switch":null})");
  ASSERT_TRUE(conf->set_json_conf("input.restart", {{"minutes", "30"}, {"hours", "2"}, {"weekdays", "*"}}));
  EXPECT_EQ(member(timetable).at("restart"), "2019-12-20T02:30:00.000Z");
  world.loop.advance(2h + 30min);
  EXPECT_EQ(member(timetable).at("restart"), "2019-12-21T02:30:00.000Z");
}

}  // namespace
}  // namespace weir
