#include "backend/collaborators/listener_input.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace weir {
namespace {

TEST(ListenerInputTest, AnAddressListensByItsOptionsOrItsQuery) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"rtmp://0.0.0.0:1935/live/x", R"({"listen": 1})", true},
      {"rtmp://0.0.0.0:1935/live/x", R"({"listen": "0"})", false},
      {"rtmp://h/live/x", "{}", false},
      {" SRT://0.0.0.0:9000?latency=1&mode=listener", "{}", true},
      {"srt://0.0.0.0:9000?mode=listener", R"({"mode": "caller"})", false},
      {"srt://h:9000", R"({"mode": "listener"})", true},
      {"tcp://0.0.0.0:9000?listen", "{}", true},
      {"tcp://h:9000?listener=1", "{}", false},
      {"rtsp://0.0.0.0/x", R"({"rtsp_flags": "prefer_tcp+listen"})", true},
      {"udp://0.0.0.0:9000?listen=1", "{}", false},
      {"/media/listen.ts?listen=1", "{}", false},
  };
  for (const auto& [url, options, expected] : cases) {
    JsonConf conf;
    conf.load_json_conf(Value{{"input", {{"1", {{"url", url}, {"options", Value::parse(options)}}}}}});
    EXPECT_EQ(is_listener_input(conf, 1), expected) << url << options;
    EXPECT_FALSE(is_listener_input(conf, 0));
  }
}

}  // namespace
}  // namespace weir
