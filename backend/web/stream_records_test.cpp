#include "backend/web/stream_records.h"

#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class StreamRecordsTest : public test::StreamFixture {
 protected:
  std::string record_of_new_list(const std::string& host) const {
    std::string text;
    StreamRecords().append(text, *stream, host);
    return text;
  }
};

TEST_F(StreamRecordsTest, TheListShowsWhatTheRecordOfEachStreamShows) {
  StreamRecords records;
  const auto expect_same = [&](const char* when, const std::string& host = "h:1") {
    for (int i = 0; i < 2; ++i) {
      std::string text = "[";
      records.append(text, *stream, host);
      EXPECT_EQ(text, "[" + record_of_new_list(host)) << when;
    }
  };
  expect_same("stopped");
  run_to_first_progress();
  expect_same("running");
  say(test::progress_line("00:00:09.00", "2.5x"));
  world.child().rss = 99 << 20;
  stream->clientinfo->add("index.m3u8", "rtmp://u:secret@h", nullptr, nullptr);
  expect_same("other figures and a client");
  expect_same("another host", "[::1]:8080");
  ASSERT_TRUE(conf->set_json_conf("label", "A \"new\" label"));
  expect_same("another label");
  world.loop.run(stream->restart(2));
  expect_same("between cycles");
  world.loop.advance(10ms);
  say(test::progress_line("00:00:01.00"));
  expect_same("on another input");
  world.graphics_memory() = 700;
  expect_same("on a graphics processor");
}

TEST_F(StreamRecordsTest, AddedMembersFollowThoseOfTheModuleAndHideNothingWhenTheyFail) {
  StreamRecords records;
  long long forgotten = 0;
  records.add_member({"broken", [](std::string& json, const Stream&) {
                        json += "{\"half";
                        throw ValueError("no figure");
                      }});
  records.add_member({"times", [](std::string& json, const Stream& stream) { json += std::to_string(stream.id); },
                      [&](long long id) { forgotten = id; }});
  for (const char* when : {"made", "kept"}) {
    std::string text;
    records.append(text, *stream, "h");
    EXPECT_TRUE(text.ends_with(R"(,"broken":null,"times":7})")) << when << text;
  }
  records.forget(7);
  EXPECT_EQ(forgotten, 7);
}

}  // namespace
}  // namespace weir
