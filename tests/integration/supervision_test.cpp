// Streams on the air with the real FFmpeg, on a clock that the test moves.

#include <arpa/inet.h>
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "backend/platform/process_info.h"
#include "backend/services/transcoder/transcoder.h"
#include "backend/stream/runtime/segment_window.h"
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

/// Makes its picture itself, in two renditions.
const Value generated = {
    {"input.0", {{"format", "lavfi"}, {"url", "testsrc2=size=320x180:rate=10[out0];sine=sample_rate=48000[out1]"}}},
    {"video", Value::parse(R"({"codec":"libx264","preset":"ultrafast","renditions":{
        "0":{"width":320,"height":180,"bitrate":200},"1":{"width":160,"height":90,"bitrate":80}}})")},
    {"audio", {{"codec", "aac"}, {"bitrate", 64}}}};

class SupervisionTest : public testing::Test {
 protected:
  SupervisionTest() {
    siblings().ffmpeg = make_ffmpeg;
    siblings().streaminfo = make_streaminfo;
    siblings().spawn_child = [this](const SpawnOptions& options) {
      auto child = spawn_child(options);
      transcoders.push_back(child->pid());
      return child;
    };
    siblings().process_info = [](pid_t pid) { return std::make_unique<Process>(pid); };
    std::filesystem::create_directories(Config::STREAM_DIRECTORY);
  }

  /// A stream of these members in HLS segments of a second.
  void make_stream(const Value& form) {
    auto conf = std::make_shared<StreamConfig>(join_path(Config::STREAM_DIRECTORY, "0.conf"));
    Value document = Value::parse(R"({"id":0,"label":"Live","min_speed":-1,"max_speed":1000,"max_sys_mem":"",
        "max_gpu_mem":"","input":{},
        "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8","segment_time":1,"list_size":3}}})");
    ASSERT_TRUE(conf->load_json_conf(document) && conf->load_json_conf(form)) << conf->get_error_msg();
    stream = std::make_shared<Stream>(0, conf);
  }

  void start() {
    ASSERT_TRUE(world.loop.run(stream->start())) << stream->get_error_msg();
    world.loop.advance(20ms);
    ASSERT_TRUE(wait_for("running")) << stream->stdbuf.read();
  }

  bool wait_for(const char* status) {
    return world.loop.run_until([&] { return stream->get_status() == status; }, 30s);
  }

  bool runs_on(int input) { return wait_for("running") && stream->ffmpeg->input_index == input; }

  void stop() {
    world.loop.run(stream->stop());
    EXPECT_TRUE(wait_for("stopped"));
  }

  // Four times as fast as it plays, so that nobody has to look at it for long.
  static std::unique_ptr<ChildProcess> start_source(const std::string& url) {
    SpawnOptions options{.command = {"ffmpeg", "-v", "quiet", "-nostdin", "-readrate", "4", "-f", "lavfi", "-i",
                                     "testsrc2=size=160x90:rate=25", "-c:v", "mpeg2video", "-g", "5", "-f", "mpegts",
                                     url + "?pkt_size=1316"},
                         .environment = std::nullopt};
    options.before_exec = lead_group_and_die_with_parent;
    return spawn_child(options);
  }

  /// Numbers of the segments of each variant that are on disk.
  static std::map<std::size_t, std::vector<long long>> segments() {
    std::map<std::size_t, std::vector<long long>> numbers;
    for (const auto& entry : std::filesystem::directory_iterator(get_hls_path(0, ""))) {
      const auto name = parse_segment_name(entry.path().filename().string());
      if (name) numbers[name->variant].push_back(std::stoll(name->number));
    }
    for (auto& [variant, list] : numbers) std::ranges::sort(list);
    return numbers;
  }

  test::FakeSiblings world;
  std::shared_ptr<Stream> stream;
  std::vector<pid_t> transcoders;
};

TEST_F(SupervisionTest, KeepsTheDiskBoundedAndNamesTheRenditions) {
  make_stream(generated);
  start();
  const auto look_for_master = [&] {
    world.loop.advance(100ms);
    return std::filesystem::exists(get_hls_path(0, "index.m3u8"));
  };
  ASSERT_TRUE(world.loop.run_until(look_for_master, 30s));
  const std::string master = read_file(get_hls_path(0, "index.m3u8"), 4096);
  EXPECT_NE(master.find("RESOLUTION=320x180\nplaylist_0.m3u8"), std::string::npos) << master;
  EXPECT_NE(master.find("RESOLUTION=160x90\nplaylist_1.m3u8"), std::string::npos) << master;
  EXPECT_NE(master.find(":BANDWIDTH=270336,"), std::string::npos) << "(200 + 64) kbit/s of 1024 bit/s: " << master;

  const long long begin = segments()[0].back();
  ASSERT_TRUE(world.loop.run_until([&] { return segments()[0].back() >= begin + 60; }, 60s));
  ::kill(stream->proc->pid(), SIGSTOP);
  world.loop.settle();
  for (const auto& [variant, numbers] : segments()) {
    // The playlist's three, one more, and the one that is being written, unless it was frozen between two.
    EXPECT_LE(numbers.size(), 5u) << "variant " << variant;
    EXPECT_GE(numbers.size(), 4u) << "variant " << variant;
    EXPECT_EQ(numbers.back() - numbers.front(), static_cast<long long>(numbers.size()) - 1) << "none was forgotten";
  }
  stop();
}

TEST_F(SupervisionTest, AStreamLeavesASourceThatGoesAndReturnsToItWhenItIsBack) {
  const std::string url = fmt::format("udp://127.0.0.1:{}", free_udp_port());
  make_stream({{"input.0", {{"url", url}}},
               {"input.1", {{"format", "lavfi"}, {"url", "testsrc2=size=160x90:rate=10"}, {"re", true}}},
               {"input.switch", {{"minutes", "0-59"}, {"hours", "0-23"}, {"weekdays", "0-6"}}},
               {"video", {{"codec", "libx264"}, {"preset", "ultrafast"}, {"bitrate", 100}}},
               {"audio.codec", "none"}});
  auto source = start_source(url);
  start();
  ASSERT_TRUE(runs_on(0)) << stream->stdbuf.read();

  source = nullptr;
  world.loop.advance(361s);
  EXPECT_EQ(world.log_lines, std::vector<std::string>{"warning Stream 0 Live: URL #0 " + url + " is timeout"});
  ASSERT_TRUE(wait_for("restarting"));
  world.loop.advance(20ms);
  world.loop.advance(10s);  // as long as the probe waits for input 0
  ASSERT_TRUE(runs_on(1)) << stream->stdbuf.read();

  source = start_source(url);
  world.loop.advance(60s);
  ASSERT_TRUE(wait_for("restarting"));
  world.loop.advance(20ms);
  ASSERT_TRUE(runs_on(0)) << stream->stdbuf.read();
  EXPECT_EQ(world.log_lines.back(), "info Stream 0 Live: Switching to priority URL #0 " + url);

  stop();
  EXPECT_EQ(transcoders.size(), 3u);
  for (const pid_t pid : transcoders) EXPECT_FALSE(test::runs(pid)) << pid;
}

TEST_F(SupervisionTest, AChildThatGrowsIsRestartedAtItsLimit) {
  const std::string go = (world.directory.path() / "go").string();
  ASSERT_EQ(::mkfifo(go.c_str(), 0600), 0);
  // In the transcoder's place: eleven seconds of media, then 100 MB in a shell's variable when it is told to.
  siblings().spawn_child = [go](SpawnOptions options) {
    options.command = {"sh", "-c",
                       "printf 'time=00:00:11.00 bitrate=1.0kbits/s speed=1x\\r' >&2; read -r word < \"$0\";"
                       "x=$(head -c 100000000 /dev/zero | tr '\\0' x); sleep 1000",
                       go};
    return spawn_child(options);
  };
  make_stream(generated);
  ASSERT_TRUE(stream->conf->set_json_conf("max_sys_mem", "50"));
  start();
  world.loop.advance(63s);
  const pid_t first = stream->proc->pid();
  EXPECT_TRUE(world.log_lines.empty()) << "a shell is small";
  std::ofstream(go.c_str()) << "go\n";
  ASSERT_TRUE(world.loop.run_until([&] { return Process(first).memory_info().rss > 60 << 20; }, 30s));
  world.loop.advance(60s);
  EXPECT_EQ(world.log_lines,
            std::vector<std::string>{"warning Stream 0 Live: System memory usage is exceeded the 50 MiB limits"});
  ASSERT_TRUE(wait_for("restarting"));
  EXPECT_NE(::kill(first, 0), 0);
  stream->thread.kill();
  EXPECT_TRUE(world.loop.run_until([&] { return stream->thread.dead(); }, 30s));
}

}  // namespace
}  // namespace weir
