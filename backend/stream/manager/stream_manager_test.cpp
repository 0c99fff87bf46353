#include "backend/stream/manager/stream_manager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "backend/stream/manager/failed_streams.h"
#include "backend/stream/manager/launch_pacing.h"
#include "backend/stream/manager/stream_file.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using Ids = std::vector<long long>;

class StreamManagerTest : public testing::Test {
 protected:
  static Value form(const char* status = "stopped") {
    return {{"label", "News"},
            {"status", status},
            {"profile", "5"},
            {"input", {{"0", {{"url", "udp://a"}}}}},
            {"output", {{"0", {{"protocol", "hls"}, {"playlist_name", "index.m3u8"}}}}}};
  }
  static std::string path(const std::string& name) { return join_path(Config::STREAM_DIRECTORY, name); }
  static void write(const std::string& name, const std::string& content = form().dump()) {
    std::ofstream(path(name)) << content;
  }

  StreamManagerTest() { world.add_profile(5, Value::object()); }

  void add(int count, const char* status = "stopped") {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(manager.add_stream(form(status))) << manager.get_error_msg();
  }
  Ids registered() const {
    Ids ids;
    for (const auto& [id, stream] : manager.streams) ids.push_back(id);
    return ids;
  }
  std::string status(long long id) { return to_text(manager.get_stream(id)->get_status()); }
  void run(const std::vector<long long>& ids) {
    for (const long long id : ids) ASSERT_TRUE(world.loop.run(manager.start_stream(id)));
    world.loop.advance(10ms);
    for (const auto& child : world.children) child->print(test::progress_line("00:00:01"));
    world.loop.settle();
  }

  test::FakeSiblings world;
  StreamManager manager;
};

TEST_F(StreamManagerTest, LoadsStreamFilesInTheOrderOfTheirIds) {
  for (const char* name : {"10.conf", "3.conf", "007.conf", "notes.txt", "5.conf.bak", "a5.conf", "-1.conf"})
    write(name);
  write("12.conf", "{broken");
  write("9007199254740992.conf");
  ASSERT_TRUE(world.loop.run(manager.init()));
  EXPECT_EQ(registered(), (Ids{3, 7, 10}));
  EXPECT_EQ(manager.stream_next_id, 11);
  ASSERT_EQ(world.log_lines.size(), 2u);
  std::ranges::sort(world.log_lines);
  EXPECT_NE(world.log_lines[0].find("12.conf"), std::string::npos);
  EXPECT_NE(world.log_lines[1].find("9007199254740992.conf"), std::string::npos);
  manager.stream_next_id = max_stream_id + 1;
  EXPECT_FALSE(manager.add_stream(form()));
  StreamConfig rewritten(path("007.conf"));
  ASSERT_TRUE(rewritten.load_json_conf());
  EXPECT_EQ(rewritten.get_json_conf("id"), 7);
  EXPECT_EQ(rewritten.get_json_conf("min_speed"), "") << "the layout update";
}

TEST_F(StreamManagerTest, RestoresWhatWasActiveThreeSecondsApart) {
  int id = 0;
  for (const char* status : {"running", "stopped", "starting", "restarting"})
    write(std::to_string(id++) + ".conf", form(status).dump());
  world.command_can_be_made = false;  // a restored start does not check the configuration
  ASSERT_TRUE(world.loop.run(manager.init()));
  world.command_can_be_made = true;
  std::vector<std::size_t> launched;
  for (int second = 0; second < 8; ++second) {
    world.loop.advance(1s);
    launched.push_back(world.children.size());
  }
  EXPECT_EQ(launched, (std::vector<std::size_t>{1, 1, 2, 2, 2, 3, 3, 3}));
  EXPECT_EQ(status(1), "stopped");
}

TEST_F(StreamManagerTest, RestoredStreamsAreLaunchedEarlierWhileProcessorsIdle) {
  add(15, "running");
  world.loop.run(manager.restore_streams());
  world.loop.run(manager.stop_stream(3));
  double idle_processors = 2;
  const Task pacing = spawn("pacing", hasten_launches(manager.all_streams(), [&] { return idle_processors; }));
  world.loop.advance(150ms);
  EXPECT_EQ(world.children.size(), 3u) << "the first, and two in place of the idle processors";
  world.loop.advance(850ms);
  EXPECT_EQ(world.children.size(), 10u);
  world.children.at(4)->print(test::progress_line("00:00:01"));
  world.loop.advance(1s);
  EXPECT_EQ(world.children.size(), 11u) << "one runs";
  idle_processors = 0.4;
  world.loop.advance(30s);
  EXPECT_EQ(world.children.size(), 11u) << "no processor is idle";
  idle_processors = 0.6;
  world.loop.advance(1s);
  EXPECT_EQ(world.children.size(), 14u) << "and the others are launched for long enough";
  EXPECT_TRUE(pacing.dead());
}

TEST_F(StreamManagerTest, DeletesOnlyWhatIsNotActiveAndNeitherStartsNorWritesItAgain) {
  add(2);
  run({0});
  const std::shared_ptr<Stream> stream = manager.get_stream(0);
  EXPECT_FALSE(manager.delete_stream("0"));
  EXPECT_EQ(manager.get_error_msg(), "Can not delete stream 0: it's running");
  world.loop.run(manager.stop_stream(0));
  world.loop.settle();
  world.loop.run(stream->start(5));
  stream->set_status("stopped");
  EXPECT_TRUE(manager.delete_stream("0"));
  world.loop.advance(10s);
  EXPECT_FALSE(world.loop.run(stream->start()));
  world.loop.advance(10s);
  EXPECT_EQ(world.children.size(), 1U);
  EXPECT_FALSE(std::filesystem::exists(path("0.conf")));
  EXPECT_EQ(registered(), Ids{1});
  std::filesystem::remove(path("1.conf"));
  std::filesystem::create_directories(path("1.conf") + "/x");
  EXPECT_FALSE(manager.delete_stream(1));
  EXPECT_NE(manager.get_error_msg().find("Failed to delete stream 1: "), std::string::npos);
  EXPECT_EQ(registered(), Ids{1});
}

TEST_F(StreamManagerTest, BatchStartSpreadsTheStoppedOnes) {
  add(3);
  run({1});
  EXPECT_TRUE(world.loop.run(manager.batch_start_streams({" +0 ", 1.9, 99, "02"})));
  EXPECT_EQ(manager.get_error_msg(), "Invalid Stream ID 99");
  world.loop.advance(10ms);
  EXPECT_EQ(world.children.size(), 2u);
  world.loop.advance(3s);
  EXPECT_EQ(world.children.size(), 3u);
}

TEST_F(StreamManagerTest, BatchRestartGoesOneByOneUntilAnotherBatchEndsIt) {
  add(4);
  run({0, 1, 2});
  EXPECT_TRUE(world.loop.run(manager.batch_restart_streams({"0", 3, 1, 2}, 3, "restart {id} {label}")));
  world.loop.advance(2900ms);
  EXPECT_EQ(world.children.size(), 4u);
  world.loop.advance(200ms);
  EXPECT_EQ(world.children.size(), 5u);
  EXPECT_EQ(world.log_lines, (std::vector<std::string>{"info Weir: restart 0 News", "info Weir: restart 1 News"}));
  EXPECT_TRUE(world.loop.run(manager.batch_stop_streams({0, 3})));
  world.loop.advance(10s);
  EXPECT_EQ(world.children.size(), 5u);
  EXPECT_EQ(status(0), "stopped");
  EXPECT_EQ(status(1), "restarting");
}

TEST_F(StreamManagerTest, WhatTheSupervisionFailedIsStartedAgainUntilItRunsOrIsStopped) {
  FailedStreams failed(manager);
  add(1);
  run({0});
  const auto fail = [&] {
    std::filesystem::remove_all(Config::MMCB_DIRECTORY);
    std::ofstream(Config::MMCB_DIRECTORY.c_str()) << "a file in the place of the directory";
    world.child().exit(1);
    world.loop.settle();
    EXPECT_EQ(status(0), "stopped");
    EXPECT_TRUE(world.told.back().starts_with("stopped because the supervision failed: ")) << world.told.back();
    EXPECT_TRUE(world.told.back().ends_with("Not a directory; starts again in 30 s")) << world.told.back();
  };
  fail();
  world.loop.advance(1s);
  for (const auto wait : {30s, 60s, 120s, 300s, 600s, 600s}) {
    const std::size_t launches = world.children.size();
    world.loop.advance(wait - 2s);
    EXPECT_EQ(world.children.size(), launches) << wait.count();
    world.loop.advance(2s);
    EXPECT_EQ(world.children.size(), launches + 1) << wait.count();
  }
  std::filesystem::remove(Config::MMCB_DIRECTORY);
  world.loop.advance(601s);
  world.child().print(test::progress_line("00:00:01"));
  world.loop.settle();
  EXPECT_EQ(status(0), "running");
  fail();
  const std::size_t launches = world.children.size();
  world.loop.run(manager.stop_stream(0, "a"));
  EXPECT_EQ(world.told.back(), "stopped by a");
  world.loop.advance(1h);
  EXPECT_EQ(world.children.size(), launches);
  failed.resume({{.stream_id = 0, .text = "x"}, {.stream_id = 7}});
  world.loop.advance(29s);
  EXPECT_EQ(world.children.size(), launches);
  world.loop.advance(2s);
  EXPECT_EQ(world.children.size(), launches + 1) << "the server before had ended";
}

TEST_F(StreamManagerTest, DescribesStreamsInTheOrderOfTheRecord) {
  EXPECT_EQ(manager.get_stream_info("h").dump(), "[]");
  add(2);
  run({1});
  world.child().rss = (100ULL << 20) - 1;
  const Value record = manager.get_stream_info("h:80").at(1);
  std::string members;
  for (const auto& [name, value] : record.items()) members += name + " ";
  EXPECT_EQ(members,
            "id label hwaccel encoders bitrate quality fps time speed status process_info url_info codec_info "
            "client_info ");
  EXPECT_EQ(record["process_info"]["mem_rss"], 99);
  EXPECT_EQ(manager.get_stream_info("h:80", "1"), record);
  world.child().exit(0);
  EXPECT_EQ(manager.get_stream_info("h:80", 1)["process_info"].dump(), "{}");
}

}  // namespace
}  // namespace weir
