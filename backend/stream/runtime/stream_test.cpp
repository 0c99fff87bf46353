#include "backend/stream/runtime/stream.h"

#include <fcntl.h>

#include <array>

#include "backend/collaborators/exception.h"
#include "backend/platform/descriptor.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using test::progress_line;
using Words = std::vector<std::string>;

class StreamTest : public test::StreamFixture {};

TEST_F(StreamTest, RunsFromStartingToRunningAndSavesEachStatus) {
  world.command_can_be_made = false;
  EXPECT_FALSE(world.loop.run(stream->start()));
  EXPECT_EQ(stream->get_error_msg(), "no command");
  EXPECT_TRUE(stream->get_status().is_null());
  world.command_can_be_made = true;
  start();
  const Task first = stream->thread;
  world.loop.settle();
  EXPECT_EQ(status(), "starting");
  start();
  world.loop.advance(10ms);
  EXPECT_TRUE(launches() == 1 && !first.dead()) << "the second start changes nothing";
  say("Input #0, mpegts, from 'udp://a':\n" + progress_line("00:00:01.00"));
  EXPECT_EQ(status(), "running");
  StreamConfig saved(conf->filename);
  ASSERT_TRUE(saved.load_json_conf());
  EXPECT_EQ(saved.get_json_conf("status"), "running");
  say("[mpegts] late warning\n");
  EXPECT_EQ(world.parsed_lines, Words{"Input #0, mpegts, from 'udp://a':\n"});
  EXPECT_EQ(stream->stdbuf.read(), "Input #0, mpegts, from 'udp://a':\n[mpegts] late warning\n");
}

TEST_F(StreamTest, RestartLaunchesAtOnceWithTheInputNamedOnceAlsoBetweenCycles) {
  run_to_first_progress();
  std::ofstream(get_hls_path(7, "playlist_0_1.ts").c_str()) << "x";
  restart(2);
  EXPECT_EQ(status(), "restarting");
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_1.ts")));
  world.loop.advance(10ms);
  ASSERT_EQ(launches(), 2u);
  EXPECT_EQ(world.child().command, (Words{"transcoder", "2"}));
  EXPECT_EQ(stream->get_url_info("h")["input_index"], 2);
  world.child().exit(0);
  world.loop.advance(4s);
  EXPECT_EQ(world.child().command, (Words{"transcoder", "0"}));
  say(progress_line("00:00:01.00"));
  world.child().print("last words");
  world.child().exit(1);
  world.loop.advance(1s);
  EXPECT_EQ(stream->stdbuf.read(), "last words");
  EXPECT_EQ(stream->stats.time, 0);
  restart(1);
  world.loop.advance(10ms);
  EXPECT_EQ(launches(), 4u);
  EXPECT_EQ(world.child().command.back(), "1");
}

TEST_F(StreamTest, NeitherAStopNorARestartIsLostToAnotherRequestOfTheSameInstant) {
  const auto ask = [](std::shared_ptr<Stream> target, char request) -> Async<> {
    if (request == '+') co_await target->start();
    if (request == '-') co_await target->stop();
    if (request == 'r') co_await target->restart(2);
  };
  for (const auto& [requests, launched] : {std::pair("+-", 0U), {"+r", 1U}, {"-r", 1U}, {"r-", 1U}}) {
    const std::size_t before = launches();
    if (requests[0] != '+') run_to_first_progress();
    for (int i = 0; i < 2; ++i) spawn("ask", ask(stream, requests[i]));
    world.loop.advance(10s);
    EXPECT_EQ(launches() - before, launched) << requests;
    EXPECT_EQ(stream->thread.dead(), std::string_view(requests) != "+r") << requests;
    if (!stream->thread.dead()) EXPECT_EQ(world.child().command.back(), "2");
    stop();
  }
}

TEST_F(StreamTest, RetriesWhatCannotBeStartedEveryThreeSeconds) {
  run_to_first_progress();
  world.command_can_be_made = false;
  restart(2);
  world.loop.advance(7s);
  EXPECT_EQ(status(), "restarting");
  EXPECT_EQ(world.log_lines, Words(3, "error Stream 7 Lobby: no command"));
  world.command_can_be_made = true;
  world.on_launch = [](test::ChildScript&) { throw std::system_error(ENOENT, std::generic_category(), "transcoder"); };
  world.loop.advance(6s);
  EXPECT_EQ(world.log_lines.size(), 5u);
  EXPECT_TRUE(logged("std::system_error: transcoder: No such file or directory"));
  world.on_launch = [](test::ChildScript& script) { EXPECT_EQ(script.command.back(), "0"); };
  world.loop.advance(3s);
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, APipeThatAnotherProcessHoldsDelaysTheCleanUpByTwoSeconds) {
  run_to_first_progress();
  const Descriptor held(::dup(world.child().stderr_write.get()));
  stop();
  world.loop.advance(1900ms);
  EXPECT_EQ(status(), "running");
  world.loop.advance(200ms);
  EXPECT_EQ(status(), "stopped");
}

TEST_F(StreamTest, ARemovedDirectoryIsReportedAndMadeAgain) {
  run_to_first_progress();
  std::filesystem::remove_all(get_hls_path(7, ""));
  world.loop.settle();
  ASSERT_EQ(world.log_lines.size(), 1u);
  EXPECT_TRUE(logged("error Stream 7 Lobby: ") && logged("hls/7 was removed")) << world.log_lines[0];
  EXPECT_EQ(status(), "restarting");
  EXPECT_TRUE(std::filesystem::is_directory(get_hls_path(7, "")));
  world.loop.advance(10ms);
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, CleanUpIsNotTornByAKill) {
  run_to_first_progress();
  world.child().dies_of_signals = false;
  world.loop.run(stream->restart());
  stream->thread.kill(Kill::with<GreenletStopException>());
  world.loop.advance(10s);
  EXPECT_EQ(status(), "running") << "the transcoder has not ended yet";
  world.child().exit(-9);
  world.loop.advance(10s);
  EXPECT_EQ(status(), "stopped");
  EXPECT_EQ(launches(), 1u);
}

TEST_F(StreamTest, RestartsWhenTheSpeedStaysOutsideTheBandUnlessItReadsAFile) {
  const std::string file = (world.directory.path() / "a.ts").string();
  std::ofstream(file) << "x";
  const std::map<char, const char*> speeds{{'s', "0.9x"}, {'o', "1.0x"}, {'e', "1.19x"}, {'f', "1.2x"}};
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"udp://a", "ssssss", false},
      {"udp://a", "sssssss", true},
      {"udp://a", "ssssssossssss", false},
      {"udp://a", "fffffff", true},
      {"udp://a", "eeeeeeeeeeeeee", false},
      {file, "ffffffffffffff", false},
      {"file:///gone.ts", "ffffffffffffff", false},
  };  // a bound is out of band
  for (const auto& [url, checks, restarted] : cases) {
    ASSERT_TRUE(conf->set_json_conf("input.0.url", url));
    run_to_first_progress();
    const std::size_t before = launches();
    int seconds = 0;
    for (const char check : checks) {
      say(progress_line("00:00:" + std::to_string(++seconds), speeds.at(check)));
      world.loop.advance(30s);
    }
    EXPECT_EQ(launches() > before, restarted) << url << checks;
    stop();
  }
  EXPECT_TRUE(logged("warning Stream 7 Lobby: Speed 0.9x is too fast or slow"));
}

TEST_F(StreamTest, KeepsSegmentsBoundedAndForeignFilesAlone) {
  world.hls_list_sizes = {5};
  run_to_first_progress();
  const auto write = [&](const std::string& name) {
    std::ofstream(get_hls_path(7, name).c_str()) << "x";
    world.loop.settle();
  };
  const auto count = [&] { return std::distance(std::filesystem::directory_iterator(get_hls_path(7, "")), {}); };
  for (int i = 0; i < 6; ++i) write("playlist_0_" + std::to_string(i) + ".ts");
  write("playlist_3_10.ts");
  EXPECT_EQ(count(), 7);
  std::filesystem::remove(get_hls_path(7, "playlist_0_0.ts"));
  for (int i = 6; i < 9; ++i) write("playlist_0_" + std::to_string(i) + ".ts");
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_2.ts"))) << "a missing file is dropped too";
  EXPECT_EQ(count(), 7);

  // The kernel drops what its queue has no room for, and says so.
  long queue = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue;
  const std::array files{get_hls_path(7, "a"), get_hls_path(7, "b")};
  for (long i = 0; i <= queue; ++i) Descriptor(::open(files[i % 2].c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (int i = 9; i < 20; ++i) std::ofstream(get_hls_path(7, "playlist_0_" + std::to_string(i) + ".ts").c_str()) << "x";
  world.loop.settle();
  write("playlist_0_20.ts");
  EXPECT_EQ(count(), 9) << "six segments, one of an unknown variant, two other files";
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_14.ts")));
  EXPECT_TRUE(world.log_lines.empty());
}

}  // namespace
}  // namespace weir
