#include "backend/stream/manager/launch_pacing.h"

#include <gtest/gtest.h>

#include "backend/stream/manager/stream_manager.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

TEST(LaunchPacingTest, LaunchesOneForEachIdleProcessorAndAtMostTenAtATime) {
  const struct {
    int under_way;
    double idle_processors;
    int launches;
  } cases[] = {{0, 0, 0}, {0, 0.4, 0}, {0, 0.6, 1}, {0, 2, 2}, {9, 2, 1}, {10, 2, 0}, {12, 2, 0}, {0, 64, 10}};
  for (const auto& [under_way, idle_processors, launches] : cases)
    EXPECT_EQ(count_launches(under_way, idle_processors), launches) << under_way << " " << idle_processors;
}

TEST(LaunchPacingTest, RestoredStreamsAreLaunchedWhileProcessorsIdle) {
  test::FakeSiblings world;
  StreamManager manager;
  std::filesystem::create_directories(Config::STREAM_DIRECTORY);
  const Value form = {{"status", "running"},
                      {"input", {{"0", {{"url", "udp://a"}}}}},
                      {"output", {{"0", {{"protocol", "hls"}, {"playlist_name", "index.m3u8"}}}}}};
  for (int i = 0; i < 15; ++i) ASSERT_TRUE(manager.add_stream(form)) << manager.get_error_msg();
  world.loop.run(manager.restore_streams());
  world.loop.run(manager.stop_stream(3));
  double idle_processors = 2;
  const Task pacing = spawn("pacing", hasten_launches(manager.all_streams(), [&] { return idle_processors; }));
  world.loop.advance(1s);
  EXPECT_EQ(world.children.size(), 10u);
  world.children.at(4)->print(test::progress_line("00:00:01"));
  world.loop.advance(1s);
  EXPECT_EQ(world.children.size(), 11u) << "one runs";
  idle_processors = 0;
  world.loop.advance(30s);
  EXPECT_EQ(world.children.size(), 11u) << "no processor is idle";
  idle_processors = 2;
  world.loop.advance(1s);
  EXPECT_EQ(world.children.size(), 14u) << "and the others are launched for long enough";
  EXPECT_TRUE(pacing.dead());
}

}  // namespace
}  // namespace weir
