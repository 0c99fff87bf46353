// What goes wrong around a stream, tried with real children on a clock that the test moves: what its owner sees, what
// is kept, and that the stream beside it does not notice. How long the loop is held up is shown by bench/faults.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "backend/collaborators/config.h"
#include "backend/platform/process_info.h"
#include "tests/integration/server_process.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// The fixture's stream runs a real program; a neighbour with a scripted transcoder is on the air already.
class FaultsTest : public test::StreamFixture {
 protected:
  FaultsTest() {
    auto document = std::make_shared<StreamConfig>(Config::STREAM_DIRECTORY + "/8.conf");
    document->load_json_conf(Value::parse(R"({"id":8,"label":"Neighbour","min_speed":"","max_speed":"",
        "max_sys_mem":"","max_gpu_mem":"","input":{"0":{"url":"udp://n"}},"output":{}})"));
    neighbour = std::make_shared<Stream>(8, document);
    world.loop.run(neighbour->start());
    world.loop.advance(10ms);
    say(test::progress_line("00:00:01.00"));
    siblings().spawn_child = [this](SpawnOptions options) {
      options.command = {program};
      auto child = spawn_child(options);
      pids.push_back(child->pid());
      return child;
    };
    siblings().process_info = [](pid_t pid) { return std::make_unique<Process>(pid); };
  }
  ~FaultsTest() override {
    stop();
    world.loop.run(neighbour->stop());
    world.loop.settle();
  }

  void launch(const std::string& name) {
    program = std::string(WEIR_TEST_PROGRAMS "/") + name;
    start();
    world.loop.advance(10ms);
  }
  bool wait_for(const char* word) {
    return world.loop.run_until([&] { return status() == word; }, 10s);
  }
  /// Stops the stream and sees that its transcoders are gone. The drain of a pipe that somebody holds takes 2 s.
  void stop() {
    world.loop.run(stream->stop());
    world.loop.run_until([&] { return status() == "stopped"; }, 1s);
    world.loop.advance(2010ms);
    EXPECT_TRUE(wait_for("stopped"));
    for (const pid_t pid : pids) EXPECT_FALSE(test::runs(pid)) << pid;
  }
  /// The neighbour still takes the figures of its first transcoder, and no word about it was logged.
  void expect_neighbour_on_air() {
    const long long time = ++neighbour_time;
    say(test::progress_line("00:00:" + std::to_string(time)));
    EXPECT_TRUE(world.loop.run_until([&] { return neighbour->stats.time == time; }, 1s));
    EXPECT_EQ(neighbour->get_status(), "running");
    EXPECT_EQ(launches(), 1u);
    EXPECT_FALSE(logged("Neighbour"));
  }
  void pass(int minutes) {
    for (int i = 0; i < minutes; ++i) {
      expect_neighbour_on_air();
      world.loop.advance(1min);
    }
  }
  std::string at(const char* name) const { return (world.directory.path() / name).string(); }

  std::shared_ptr<Stream> neighbour;
  long long neighbour_time = 10;
  std::string program;
  std::vector<pid_t> pids;
};

TEST_F(FaultsTest, AProgramThatCannotBeStartedIsNamedAndTriedAgainUntilItCan) {
  const std::string path = at("program");
  const auto write = [&](const char* content, mode_t mode) {
    return [=] {
      std::ofstream(path) << content;
      ::chmod(path.c_str(), mode);
    };
  };
  const struct {
    std::function<void()> prepare;
    const char* reason;
  } cases[] = {{[] {}, ": No such file or directory"},
               {write("#!/bin/sh\nexec sleep 60", 0600), ": Permission denied"},
               {write("no program", 0700), ": Exec format error"}};
  program = path;
  start();
  world.loop.advance(1s);
  for (const auto& c : cases) {
    c.prepare();
    world.log_lines.clear();
    world.loop.advance(3s);
    EXPECT_TRUE(logged(path + c.reason)) << testing::PrintToString(world.log_lines);
    EXPECT_EQ(world.log_lines.size(), 1u);
    EXPECT_EQ(status(), "restarting");
  }
  program = WEIR_TEST_PROGRAMS "/goes_on";
  world.loop.advance(3s);
  EXPECT_TRUE(wait_for("running"));
  expect_neighbour_on_air();
}

TEST_F(FaultsTest, ChildrenOfTheProgramDieWithItsGroupAndOthersCannotHoldTheStream) {
  launch("leaves_children");
  ASSERT_TRUE(wait_for("running"));
  std::istringstream log(stream->stdbuf.read());
  std::string word;
  pid_t of_the_group = 0;
  pid_t elsewhere = 0;
  log >> word >> of_the_group >> word >> elsewhere;
  ASSERT_TRUE(test::runs(of_the_group) && test::runs(elsewhere)) << log.str();
  stop();
  EXPECT_TRUE(test::eventually([&] { return !test::runs(of_the_group); }, 1s));
  EXPECT_TRUE(test::runs(elsewhere)) << "it is out of reach, and held the pipe";
  ::kill(elsewhere, SIGKILL);
  launch("goes_on");
  EXPECT_TRUE(wait_for("running"));
  expect_neighbour_on_air();
}

TEST_F(FaultsTest, AProgramThatClosesItsOutputIsRestartedOnceItsTimeStandsStill) {
  launch("closes_its_output");
  ASSERT_TRUE(wait_for("running"));
  pass(2);
  EXPECT_EQ(status(), "running");
  expect_neighbour_on_air();
  pass(5);
  EXPECT_TRUE(logged("warning Stream 7 Lobby: URL #0 udp://a is timeout"));
  EXPECT_TRUE(world.loop.run_until([&] { return world.loop.advance(10ms), pids.size() == 2; }, 1s));
}

TEST_F(FaultsTest, ARemovedDirectoryIsReportedAndTheStreamIsLaunchedAgainOnTheSameInput) {
  launch("goes_on");
  ASSERT_TRUE(wait_for("running"));
  world.loop.run(stream->restart(1));
  ASSERT_TRUE(wait_for("restarting"));
  world.loop.advance(20ms);
  ASSERT_TRUE(wait_for("running"));
  fs::remove_all(get_hls_path(7, ""));
  ASSERT_TRUE(world.loop.run_until([&] { return !world.log_lines.empty(); }, 5s));
  EXPECT_TRUE(logged("error Stream 7 Lobby: ")) << world.log_lines[0];
  EXPECT_TRUE(logged(get_hls_path(7, "").substr(0, get_hls_path(7, "").size() - 1))) << world.log_lines[0];
  ASSERT_TRUE(wait_for("restarting"));
  EXPECT_TRUE(fs::is_directory(get_hls_path(7, "")));
  world.loop.advance(20ms);
  ASSERT_TRUE(wait_for("running"));
  EXPECT_EQ(stream->ffmpeg->input_index, 1);
  expect_neighbour_on_air();
}

}  // namespace
}  // namespace weir
