#include "backend/stream/runtime/stream.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using test::progress_line;
using Words = std::vector<std::string>;

class StreamTest : public test::StreamFixture {};

TEST_F(StreamTest, IsNamedByIdAndLabel) {
  EXPECT_EQ(stream->get_class_name(), "Stream 7 Lobby");
  conf->del_json_conf("label");
  EXPECT_EQ(stream->get_class_name(), "Stream 7 None");
}

TEST_F(StreamTest, EmptiesItsDirectoriesWhenItIsMade) {
  const std::string old_segment = get_hls_path(7, "playlist_0_1.ts");
  std::ofstream(old_segment.c_str()) << "x";
  const Stream another(7, conf);
  EXPECT_FALSE(std::filesystem::exists(old_segment));
  EXPECT_TRUE(std::filesystem::is_directory(join_path(Config::MMCB_DIRECTORY, "7")));
}

TEST_F(StreamTest, RunsFromStartingToRunningAndSavesEachStatus) {
  start();
  world.loop.settle();
  EXPECT_EQ(status(), "starting");
  world.loop.advance(10ms);
  ASSERT_EQ(launches(), 1u);
  say("Input #0, mpegts, from 'udp://a':\n");
  say(progress_line("00:00:01.00"));
  EXPECT_EQ(status(), "running");
  StreamConfig saved(conf->filename);
  ASSERT_TRUE(saved.load_json_conf());
  EXPECT_EQ(saved.get_json_conf("status"), "running");
  say("[mpegts] late warning\n");
  EXPECT_EQ(world.parsed_lines, Words{"Input #0, mpegts, from 'udp://a':\n"});
  EXPECT_EQ(stream->stdbuf.read(), "Input #0, mpegts, from 'udp://a':\n[mpegts] late warning\n");
}

TEST_F(StreamTest, StartIsRefusedWithoutACommandAndKeptWhileItRuns) {
  world.command_can_be_made = false;
  EXPECT_FALSE(world.loop.run(stream->start()));
  EXPECT_EQ(stream->get_error_msg(), "no command");
  EXPECT_TRUE(stream->get_status().is_null());
  world.command_can_be_made = true;
  start();
  const Task first = stream->thread;
  start();
  world.loop.advance(10ms);
  EXPECT_EQ(launches(), 1u);
  EXPECT_FALSE(first.dead());
}

TEST_F(StreamTest, StartWaitsItsDelayAsStarting) {
  world.loop.run(stream->start(5));
  world.loop.advance(4900ms);
  EXPECT_EQ(status(), "starting");
  EXPECT_EQ(launches(), 0u);
  world.loop.advance(200ms);
  EXPECT_EQ(launches(), 1u);
}

TEST_F(StreamTest, LaunchesAgainThreeSecondsAfterTheTranscoderEnded) {
  run_to_first_progress();
  world.child().print("last words");
  world.child().exit(1);
  world.loop.settle();
  EXPECT_EQ(status(), "restarting");
  EXPECT_EQ(world.children[0]->signals, std::vector<int>{SIGKILL}) << "what it started dies with its group";
  EXPECT_TRUE(world.children[0]->reaped);
  EXPECT_EQ(stream->stdbuf.read(), "last words");
  EXPECT_EQ(stream->stats.time, 0);
  world.loop.advance(2900ms);
  EXPECT_EQ(launches(), 1u);
  world.loop.advance(200ms);
  ASSERT_EQ(launches(), 2u);
  EXPECT_EQ(status(), "restarting");
  say(progress_line("00:00:01.00"));
  EXPECT_EQ(status(), "running");
}

TEST_F(StreamTest, RestartLaunchesAtOnceWithTheInputNamedOnce) {
  run_to_first_progress();
  std::ofstream(get_hls_path(7, "playlist_0_1.ts").c_str()) << "x";
  world.loop.run(stream->restart(2));
  EXPECT_EQ(status(), "restarting");
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_1.ts")));
  world.loop.advance(10ms);
  ASSERT_EQ(launches(), 2u);
  EXPECT_EQ(world.child().command, (Words{"transcoder", "2"}));
  EXPECT_EQ(stream->get_url_info("h")["input_index"], 2);
  world.child().exit(0);
  world.loop.advance(4s);
  EXPECT_EQ(world.child().command, (Words{"transcoder", "0"}));
}

TEST_F(StreamTest, StopEndsAsStoppedAndMayBeRepeated) {
  run_to_first_progress();
  EXPECT_TRUE(world.loop.run(stream->stop()));
  world.loop.settle();
  EXPECT_EQ(status(), "stopped");
  EXPECT_TRUE(stream->thread.dead());
  EXPECT_EQ(world.child().signals, std::vector<int>{SIGKILL});
  EXPECT_TRUE(world.loop.run(stream->stop()));
  world.loop.advance(1min);
  EXPECT_EQ(launches(), 1u);
}

TEST_F(StreamTest, AStopIsNotLostToARestartOfTheSameInstant) {
  for (const bool stop_first : {true, false}) {
    run_to_first_progress();
    const auto ask = [](std::shared_ptr<Stream> target, bool stop) -> Async<> {
      stop ? co_await target->stop() : co_await target->restart(1);
    };
    spawn("first", ask(stream, stop_first));
    spawn("second", ask(stream, !stop_first));
    world.loop.advance(10s);
    EXPECT_EQ(status(), "stopped") << stop_first;
    EXPECT_TRUE(stream->thread.dead());
  }
}

TEST_F(StreamTest, TwoRestartsInOneInstantAreOne) {
  run_to_first_progress();
  const auto ask = [](std::shared_ptr<Stream> target) -> Async<> { co_await target->restart(); };
  spawn("first", ask(stream));
  spawn("second", ask(stream));
  world.loop.advance(2s);
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, RestartBetweenCyclesLaunchesAtOnce) {
  run_to_first_progress();
  world.child().exit(1);
  world.loop.advance(1s);
  const int cleanups = world.builder_cleanups;
  world.loop.run(stream->restart(1));
  world.loop.advance(10ms);
  ASSERT_EQ(launches(), 2u);
  EXPECT_EQ(world.child().command.back(), "1");
  EXPECT_EQ(world.builder_cleanups, cleanups + 1) << "the previous builder once more";
}

TEST_F(StreamTest, RetriesAFailedCommandWithTheSameInput) {
  run_to_first_progress();
  world.command_can_be_made = false;
  world.loop.run(stream->restart(2));
  world.loop.advance(7s);
  EXPECT_EQ(status(), "restarting");
  EXPECT_EQ(std::ranges::count(world.log_lines, "error Stream 7 Lobby: no command"), 3);
  world.command_can_be_made = true;
  world.loop.advance(3s);
  EXPECT_EQ(world.child().command.back(), "2");
}

TEST_F(StreamTest, ReportsAProgramThatCannotBeStartedAndRetries) {
  world.on_launch = [](test::ChildScript&) { throw_errno(ENOENT, "/opt/transcoder"); };
  start();
  world.loop.advance(7s);
  EXPECT_EQ(std::ranges::count_if(world.log_lines,
                                  [](const auto& l) { return l.find("/opt/transcoder: No such") != l.npos; }),
            3);
  EXPECT_EQ(status(), "restarting");
  world.on_launch = {};
  world.loop.advance(3s);
  EXPECT_EQ(launches(), 1u);
}

TEST_F(StreamTest, AChildThatIsGoneAtOnceIsNotReported) {
  world.process_is_gone = true;
  start();
  world.loop.advance(10ms);
  world.process_is_gone = false;
  EXPECT_TRUE(world.log_lines.empty());
  EXPECT_EQ(status(), "restarting");
  world.loop.advance(4s);
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, AFailedCleanUpEndsTheTaskAsStopped) {
  run_to_first_progress();
  std::filesystem::remove_all(Config::MMCB_DIRECTORY);
  std::ofstream(Config::MMCB_DIRECTORY.c_str()) << "a file in the place of the directory";
  world.child().exit(1);
  world.loop.settle();
  EXPECT_EQ(status(), "stopped");
  EXPECT_TRUE(stream->thread.dead());
  EXPECT_TRUE(world.loop.failures.empty());
}

TEST_F(StreamTest, TaskExitEndsTheTaskAfterItsCleanUp) {
  run_to_first_progress();
  world.loop.run(stream->thread.kill_and_wait());
  EXPECT_EQ(world.child().signals, std::vector<int>{SIGKILL});
  EXPECT_EQ(status(), "stopped");
}

TEST_F(StreamTest, CleanUpIsNotTornByAStop) {
  run_to_first_progress();
  world.child().dies_of_signals = false;
  const auto ask = [](std::shared_ptr<Stream> target, bool stop) -> Async<> {
    stop ? co_await target->stop() : co_await target->restart();
  };
  spawn("restart", ask(stream, false));
  world.loop.settle();
  spawn("stop", ask(stream, true));
  world.loop.advance(10s);
  EXPECT_EQ(status(), "running") << "the transcoder has not ended yet";
  world.child().exit(-9);
  world.loop.advance(10s);
  EXPECT_EQ(status(), "stopped");
  EXPECT_EQ(launches(), 1u);
}

TEST_F(StreamTest, AGrandchildThatHoldsThePipeCannotHoldTheStream) {
  run_to_first_progress();
  const Descriptor held(::dup(world.child().stderr_write.get()));
  world.loop.run(stream->stop());
  world.loop.advance(1900ms);
  EXPECT_EQ(status(), "running");
  world.loop.advance(200ms);
  EXPECT_EQ(status(), "stopped");
}

TEST_F(StreamTest, TimesOutWhenTheMediaTimeStandsStill) {
  run_to_first_progress();
  world.loop.advance(359s);
  EXPECT_EQ(launches(), 1u) << "the media time moved since the first check";
  world.loop.advance(2s);
  EXPECT_EQ(launches(), 2u);
  EXPECT_TRUE(logged("warning Stream 7 Lobby: URL #0 udp://a is timeout"));
  for (int minute = 0; minute < 10; ++minute) {
    say(progress_line("00:0" + std::to_string(minute) + ":30.00"));
    world.loop.advance(60s);
  }
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, RestartsWhenTheSpeedStaysOutsideTheBand) {
  struct Case {
    std::vector<std::string> speeds;  // one for each check
    bool restarted;
  };
  const Words slow(6, "0.9x");  // a bound is out of band
  const auto joined = [](Words first, const Words& then) {
    first.insert(first.end(), then.begin(), then.end());
    return first;
  };
  for (const Case& c :
       {Case{slow, false}, Case{joined(slow, {"0.9x"}), true}, Case{joined(joined(slow, {"1.0x"}), slow), false},
        Case{Words(7, "1.2x"), true}, Case{Words(30, "1.19x"), false}}) {
    run_to_first_progress();
    const std::size_t before = launches();
    int seconds = 0;
    for (const std::string& speed : c.speeds) {
      ++seconds;
      say(progress_line("00:00:" + std::to_string(seconds), speed));
      world.loop.advance(30s);
    }
    EXPECT_EQ(launches() > before, c.restarted) << c.speeds.size() << " checks, " << c.speeds.back();
    world.loop.run(stream->stop());
    world.loop.settle();
  }
  EXPECT_TRUE(logged("warning Stream 7 Lobby: Speed 0.9x is too fast or slow"));
}

TEST_F(StreamTest, DoesNotWatchTheSpeedOfFiles) {
  const std::string file = (world.directory.path() / "a.ts").string();
  std::ofstream(file.c_str()) << "x";
  for (const std::string& url : {file, std::string("file:///gone.ts")}) {
    conf->set_json_conf("input.0.url", url);
    run_to_first_progress();
    for (int i = 10; i < 30; ++i) {
      say(progress_line("00:00:" + std::to_string(i), "9x"));
      world.loop.advance(30s);
    }
    world.loop.run(stream->stop());
    world.loop.settle();
  }
  EXPECT_EQ(launches(), 2u);
}

TEST_F(StreamTest, AnUnreadableBandFailsItsTaskAndNotTheStream) {
  conf->set_json_conf("min_speed", nullptr);
  run_to_first_progress();
  EXPECT_EQ(world.loop.failures.size(), 1u);
  EXPECT_TRUE(world.log_lines.empty());
  EXPECT_EQ(status(), "running");
  conf->set_json_conf("min_speed", "0.5");
  conf->set_json_conf("input.0.url", nullptr);
  world.loop.run(stream->restart());
  world.loop.advance(10ms);
  EXPECT_TRUE(logged("TypeError: an input's url has to be text"));
}

TEST_F(StreamTest, KeepsEachVariantsSegmentsBounded) {
  world.hls_list_sizes = {5, 1};
  run_to_first_progress();
  const auto write = [&](const std::string& name) {
    std::ofstream(get_hls_path(7, name).c_str()) << "x";
    world.loop.settle();
  };
  const auto count = [&] { return std::distance(std::filesystem::directory_iterator(get_hls_path(7, "")), {}); };
  for (int i = 0; i < 6; ++i) write("playlist_0_" + std::to_string(i) + ".ts");
  write("playlist_0.m3u8");
  write("playlist_3_10.ts");
  EXPECT_EQ(count(), 8);
  write("playlist_0_6.ts");
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_0.ts")));
  EXPECT_EQ(count(), 8);
  std::filesystem::remove(get_hls_path(7, "playlist_0_1.ts"));
  write("playlist_0_7.ts");
  write("playlist_0_8.ts");
  EXPECT_FALSE(std::filesystem::exists(get_hls_path(7, "playlist_0_2.ts"))) << "a missing file is still dropped";
  for (int i = 0; i < 4; ++i) write("playlist_1_" + std::to_string(i) + ".ts");
  EXPECT_EQ(count(), 10);
  EXPECT_TRUE(world.log_lines.empty());
}

TEST_F(StreamTest, WritesTheMasterPlaylistOnceEveryVariantIsThere) {
  world.hls_list_sizes = {5, 5, 5};
  world.hls_variants = {{{"v", 0, 0}, {"a", 0, 0}}, {{"v", 1, 0}, {"a", 0, 0}}, {{"a", 0, 0}, {"s", 0, 0}}};
  world.hls_master_playlist = "index.m3u8";
  world.output_streams[{"v", 0}] = {
      {.stream_type = "v", .bitrate_avg = 2500, .bitrate = 9, .width = 1280, .height = 720}};
  world.output_streams[{"v", 1}] = {
      {.stream_type = "v", .bitrate_avg = 800, .bitrate = {}, .width = 640, .height = 360}};
  world.output_streams[{"a", 0}] = {{.stream_type = "a", .bitrate_avg = 7, .bitrate = 128}};
  world.output_streams[{"s", 0}] = {{.stream_type = "s", .bitrate_avg = 5, .bitrate = 5}};
  run_to_first_progress();
  const std::string master = get_hls_path(7, "index.m3u8");
  for (const char* name : {"playlist_0.m3u8", "playlist_1.m3u8"}) std::ofstream(get_hls_path(7, name).c_str()) << "x";
  world.loop.advance(5s);
  EXPECT_FALSE(std::filesystem::exists(master));
  std::ofstream(get_hls_path(7, "playlist_2.m3u8").c_str()) << "x";
  world.loop.advance(1100ms);
  EXPECT_EQ(read_file(master, 1000),
            "#EXTM3U\n#EXT-X-VERSION:3\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=2691072,RESOLUTION=1280x720\nplaylist_0.m3u8\n\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=950272,RESOLUTION=640x360\nplaylist_1.m3u8\n\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=131072,RESOLUTION=\nplaylist_2.m3u8\n\n");
}

TEST_F(StreamTest, TellsWhatTheTranscoderUses) {
  EXPECT_EQ(stream->get_process_info().dump(), "{}");
  run_to_first_progress();
  world.child().rss = (100ULL << 20) - 1;
  EXPECT_EQ(stream->get_process_info().dump(), R"({"cpu_percent":0.0,"mem_rss":99})");
  world.graphics_memory() = 700;
  EXPECT_EQ(stream->get_process_info().dump(),
            R"({"cpu_percent":0.0,"mem_rss":99,"gpu_dec":1,"gpu_sm":2,"gpu_enc":3,"gpu_mem":700})");
  world.child().exit(0);
  EXPECT_EQ(stream->get_process_info().dump(), "{}");
}

}  // namespace
}  // namespace weir
