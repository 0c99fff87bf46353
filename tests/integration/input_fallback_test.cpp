// A source that goes and comes back, read by the real FFmpeg, on a clock that the test moves.

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/process_info.h"
#include "backend/services/transcoder/transcoder.h"
#include "backend/stream/runtime/stream.h"
#include "tests/integration/server_process.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

/// A port of the loopback that nobody has at the moment.
int free_udp_port() {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  return ntohs(address.sin_port);
}

class InputFallbackTest : public testing::Test {
 protected:
  InputFallbackTest() {
    siblings().ffmpeg = make_ffmpeg;
    siblings().streaminfo = make_streaminfo;
    siblings().spawn_child = [this](const SpawnOptions& options) {
      auto child = spawn_child(options);
      transcoders.push_back(child->pid());
      return child;
    };
    siblings().process_info = [](pid_t pid) { return std::make_unique<Process>(pid); };
    std::filesystem::create_directories(Config::STREAM_DIRECTORY);
    conf = std::make_shared<StreamConfig>(Config::STREAM_DIRECTORY + "/0.conf");
    Value form = Value::parse(R"({"id":0,"label":"Live","min_speed":-1,"max_speed":1000,"max_sys_mem":"",
        "max_gpu_mem":"",
        "input":{"0":{},"1":{"format":"lavfi","url":"testsrc2=size=160x90:rate=10","re":true},
                 "switch":{"minutes":"0-59","hours":"0-23","weekdays":"0-6"}},
        "video":{"codec":"libx264","preset":"ultrafast","bitrate":100},"audio":{"codec":"none"},
        "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8","segment_time":1}}})");
    form["input"]["0"]["url"] = url;
    EXPECT_TRUE(conf->load_json_conf(form)) << conf->get_error_msg();
    stream = std::make_shared<Stream>(0, conf);
  }

  // Four times as fast as it plays, so that nobody has to look at it for long.
  std::unique_ptr<ChildProcess> start_source() const {
    SpawnOptions options{.command = {"ffmpeg", "-v", "quiet", "-nostdin", "-readrate", "4", "-f", "lavfi", "-i",
                                     "testsrc2=size=160x90:rate=25", "-c:v", "mpeg2video", "-g", "5", "-f", "mpegts",
                                     url + "?pkt_size=1316"},
                         .environment = std::nullopt};
    options.before_exec = lead_group_and_die_with_parent;
    return spawn_child(options);
  }

  /// Waits for the end of the cycle and lets the time of the next launch come.
  void launch_again() {
    ASSERT_TRUE(world.loop.run_until([&] { return stream->get_status() == "restarting"; }, 10s));
    world.loop.advance(20ms);
  }

  bool runs_on(int input) {
    return world.loop.run_until(
        [&] { return stream->get_status() == "running" && stream->ffmpeg->input_index == input; }, 20s);
  }

  test::FakeSiblings world;
  const std::string url = fmt::format("udp://127.0.0.1:{}", free_udp_port());
  std::vector<pid_t> transcoders;
  std::shared_ptr<StreamConfig> conf;
  std::shared_ptr<Stream> stream;
};

TEST_F(InputFallbackTest, AStreamLeavesASourceThatGoesAndReturnsToItWhenItIsBack) {
  auto source = start_source();
  ASSERT_TRUE(world.loop.run(stream->start())) << stream->get_error_msg();
  world.loop.advance(20ms);
  ASSERT_TRUE(runs_on(0)) << stream->stdbuf.read();

  source = nullptr;
  world.loop.advance(361s);
  EXPECT_EQ(world.log_lines, std::vector<std::string>{"warning Stream 0 Live: URL #0 " + url + " is timeout"});
  launch_again();
  world.loop.advance(10s);  // as long as the probe waits for input 0
  ASSERT_TRUE(runs_on(1)) << stream->stdbuf.read();

  source = start_source();
  world.loop.advance(60s);
  launch_again();
  ASSERT_TRUE(runs_on(0)) << stream->stdbuf.read();
  EXPECT_EQ(world.log_lines.back(), "info Stream 0 Live: Switching to priority URL #0 " + url);

  world.loop.run(stream->stop());
  EXPECT_TRUE(world.loop.run_until([&] { return stream->get_status() == "stopped"; }, 10s));
  EXPECT_EQ(transcoders.size(), 3u);
  for (const pid_t pid : transcoders) EXPECT_FALSE(test::runs(pid)) << pid;
}

}  // namespace
}  // namespace weir
