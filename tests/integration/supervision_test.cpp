// Streams on the air with the real FFmpeg, on a clock that the test moves.

#include <gtest/gtest.h>
#include <signal.h>
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
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class SupervisionTest : public testing::Test {
 protected:
  SupervisionTest() {
    siblings().ffmpeg = make_ffmpeg;
    siblings().streaminfo = make_streaminfo;
    siblings().spawn_child = spawn_child;
    siblings().process_info = [](pid_t pid) { return std::make_unique<Process>(pid); };
    std::filesystem::create_directories(Config::STREAM_DIRECTORY);
  }

  /// A stream that makes its picture itself, with two renditions in segments of a second.
  std::shared_ptr<Stream> make_stream(bool real_time) {
    auto conf = std::make_shared<StreamConfig>(join_path(Config::STREAM_DIRECTORY, "0.conf"));
    Value form = Value::parse(R"({"id":0,"label":"Real","min_speed":"","max_speed":"","max_sys_mem":"","max_gpu_mem":"",
        "input":{"0":{"format":"lavfi",
                      "url":"testsrc2=size=320x180:rate=10[out0];sine=sample_rate=48000[out1]"}},
        "video":{"codec":"libx264","preset":"ultrafast","renditions":{
            "0":{"width":320,"height":180,"bitrate":200},"1":{"width":160,"height":90,"bitrate":80}}},
        "audio":{"codec":"aac","bitrate":64},
        "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8","segment_time":1,"list_size":3}}})");
    form["input"]["0"]["re"] = real_time;
    EXPECT_TRUE(conf->load_json_conf(form)) << conf->get_error_msg();
    return std::make_shared<Stream>(0, conf);
  }

  void start(Stream& stream) {
    ASSERT_TRUE(world.loop.run(stream.start())) << stream.get_error_msg();
    world.loop.advance(20ms);
    ASSERT_TRUE(wait_for(stream, "running")) << stream.stdbuf.read();
  }

  bool wait_for(Stream& stream, const char* status) {
    return world.loop.run_until([&] { return stream.get_status() == status; }, 30s);
  }

  void stop(Stream& stream) {
    world.loop.run(stream.stop());
    EXPECT_TRUE(wait_for(stream, "stopped"));
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
};

TEST_F(SupervisionTest, AFrozenTranscoderEndsInTheTimeoutRestart) {
  const auto stream = make_stream(true);
  start(*stream);
  const pid_t first = stream->proc->pid();
  ::kill(first, SIGSTOP);
  world.loop.advance(361s);
  EXPECT_TRUE(std::ranges::any_of(world.log_lines, [](const std::string& line) {
    return line.starts_with("warning Stream 0 Real: URL #0 testsrc2=") && line.ends_with(" is timeout");
  }));
  ASSERT_TRUE(wait_for(*stream, "restarting"));
  world.loop.advance(20ms);
  EXPECT_TRUE(wait_for(*stream, "running"));
  EXPECT_NE(stream->proc->pid(), first);
  stop(*stream);
}

TEST_F(SupervisionTest, AKilledTranscoderComesBackAfterThreeSeconds) {
  const auto stream = make_stream(true);
  start(*stream);
  ::kill(stream->proc->pid(), SIGKILL);
  ASSERT_TRUE(wait_for(*stream, "restarting"));
  world.loop.advance(2900ms);
  EXPECT_FALSE(stream->proc);
  world.loop.advance(200ms);
  EXPECT_TRUE(stream->proc);
  EXPECT_TRUE(wait_for(*stream, "running"));
  stop(*stream);
}

TEST_F(SupervisionTest, KeepsTheDiskBoundedAndNamesTheRenditions) {
  const auto stream = make_stream(false);
  start(*stream);
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
  stop(*stream);
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
  const auto stream = make_stream(true);
  stream->conf->set_json_conf("max_sys_mem", "50");
  start(*stream);
  world.loop.advance(63s);
  const pid_t first = stream->proc->pid();
  EXPECT_TRUE(world.log_lines.empty()) << "a shell is small";
  std::ofstream(go.c_str()) << "go\n";
  ASSERT_TRUE(world.loop.run_until([&] { return Process(first).memory_info().rss > 60 << 20; }, 30s));
  world.loop.advance(60s);
  EXPECT_EQ(world.log_lines,
            std::vector<std::string>{"warning Stream 0 Real: System memory usage is exceeded the 50 MiB limits"});
  ASSERT_TRUE(wait_for(*stream, "restarting"));
  EXPECT_NE(::kill(first, 0), 0);
  stream->thread.kill();
  EXPECT_TRUE(world.loop.run_until([&] { return stream->thread.dead(); }, 30s));
}

}  // namespace
}  // namespace weir
