#include "backend/stream/clients/stream_client_info.h"

#include <gtest/gtest.h>

#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class StreamClientInfoTest : public testing::Test {
 protected:
  static StreamClientInfo track(StreamConfig& conf) {
    conf.load_json_conf(Value::parse(R"({"input":{},"output":{
        "0":{"protocol":"hls","playlist_name":"index.m3u8"},
        "1":{"protocol":"udp","hostname":"h","port":1,"filename":"u.ts"},
        "2":{"protocol":"http","filename":"a.ts"}}})"));
    return StreamClientInfo(conf);
  }

  Value clients_of(const char* index) { return info.dumps()[index]["clients"]; }

  test::FakeSiblings world;
  StreamConfig conf;
  StreamClientInfo info = track(conf);
};

TEST_F(StreamClientInfoTest, ListsTrackedOutputsWithTheirClientsInOrderOfArrival) {
  EXPECT_EQ(info.dumps().dump(), R"({"0":{"protocol":"hls","clients":[]},"2":{"protocol":"http","clients":[]}})");
  EXPECT_TRUE(info.add("u.ts", "10.0.0.9", nullptr, nullptr));
  info.add("index.m3u8", "10.0.0.5", nullptr, nullptr);
  info.add("index.m3u8", "10.0.0.4", "90", nullptr);
  world.loop.advance(5s);
  info.add("index.m3u8", "10.0.0.5", nullptr, 1);
  EXPECT_EQ(clients_of("0").dump(), R"([{"addr":"10.0.0.5","duration":5},{"addr":"10.0.0.4","duration":5}])");
}

TEST_F(StreamClientInfoTest, ForgetsClientsAfterTheirOwnTimeoutWhicheverCameFirst) {
  info.add("index.m3u8", "late", nullptr, 3600);
  info.add("index.m3u8", "never", nullptr, 1ULL << 63);
  world.loop.advance(500ms);
  info.add("index.m3u8", "early", nullptr, 2);
  info.add("index.m3u8", "text", nullptr, "10");
  info.add("a.ts", "at once", nullptr, -1);
  world.loop.advance(2499ms);
  EXPECT_EQ(clients_of("0").size(), 4u);
  EXPECT_EQ(clients_of("2").size(), 0u);
  world.loop.advance(1ms);
  EXPECT_EQ(clients_of("0").size(), 3u);
  info.add("index.m3u8", "text", nullptr, nullptr);
  world.loop.advance(8s);
  EXPECT_EQ(clients_of("0").size(), 3u) << "it came again, without a timeout";
  world.loop.advance(3600s);
  EXPECT_EQ(clients_of("0").dump(), R"([{"addr":"never","duration":3611},{"addr":"text","duration":3611}])");
}

}  // namespace
}  // namespace weir
