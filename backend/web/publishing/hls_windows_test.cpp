#include "backend/web/publishing/hls_windows.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using State = HlsWindows::StreamState;

/// Plays the transcoder of stream 5, and the heart that empties its directory.
class HlsWindowsTest : public testing::Test {
 protected:
  HlsWindowsTest() { fs::create_directories(live()); }

  static std::string live(const std::string& name = "") { return Config::HLS_DIRECTORY + "/5/" + name; }
  static std::string kept(const std::string& name = "") { return Config::HLS_DIRECTORY + "/windows/5/" + name; }

  static HlsCycle cycle(std::size_t renditions = 1) {
    HlsCycle cycle{.segment_time = 4, .list_size = 3, .has_fixed_segments = true};
    cycle.renditions.resize(renditions);
    return cycle;
  }
  void begin(std::size_t renditions = 1) { first_ = windows_->begin_cycle(5, cycle(renditions)); }
  /// The transcoder's playlist lists the last 8 of `count` segments.
  void write_segments(int count, std::size_t rendition = 0, double duration = 4) {
    MediaPlaylist playlist{.rendition = rendition, .target_duration = 4};
    for (int i = 0; i < count; ++i) {
      const long long number = first_[rendition] + i;
      std::ofstream(live(segment_name(rendition, number))) << "segment";
      if (i >= count - 8) playlist.segments.push_back({.number = number, .duration = duration});
    }
    std::ofstream(live(media_playlist_name(rendition))) << format_media_playlist(playlist);
  }
  void end() {
    windows_->end_cycle(5);
    empty_directory();
  }
  void empty_directory() {
    fs::remove_all(live());
    fs::create_directories(live());
  }
  void run_cycle(int segments) {
    begin();
    write_segments(segments);
    end();
  }
  void restart_server() {
    windows_ = std::make_unique<HlsWindows>();
    windows_->adopt();
    empty_directory();
  }
  void sweep(State state) {
    windows_->sweep([state](long long) { return state; });
  }

  /// "3|4*5 6": the numbers after the stream's first one; "*" is a discontinuity, "|" that before the list.
  std::string shown(std::size_t rendition = 0) {
    const MediaPlaylist playlist = windows_->show(5, rendition);
    std::string text;
    for (const HlsSegment& segment : playlist.segments) {
      if (text.empty()) text = std::to_string(segment.discontinuity - segment.breaks) + "|";
      text += std::string(static_cast<std::size_t>(segment.breaks), '*') + std::to_string(segment.number - base_) + " ";
      EXPECT_TRUE(fs::exists(HlsWindows::find_file(5, segment_name(rendition, segment.number)))) << segment.number;
    }
    return text;
  }

  test::FakeSiblings world_;
  std::unique_ptr<HlsWindows> windows_ = std::make_unique<HlsWindows>();
  long long base_ = wall_seconds();
  std::vector<long long> first_;
};

TEST_F(HlsWindowsTest, NumbersGoOnOverCyclesAndTheLastWindowStaysInBetween) {
  EXPECT_EQ(shown(), "");
  begin();
  EXPECT_EQ(shown(), "");
  write_segments(5);
  EXPECT_EQ(shown(), "0|2 3 4 ");
  end();
  EXPECT_EQ(shown(), "0|2 3 4 ");
  begin();
  EXPECT_EQ(first_[0], base_ + 5);
  write_segments(1);
  EXPECT_EQ(shown(), "0|3 4 *5 ");
  write_segments(3);
  EXPECT_EQ(shown(), "0|*5 6 7 ");
  write_segments(4);
  EXPECT_EQ(shown(), "1|6 7 8 ");
}

TEST_F(HlsWindowsTest, ACycleWithoutASegmentLeavesNoTrace) {
  run_cycle(4);
  for (int i = 0; i < 3; ++i) run_cycle(0);
  windows_->end_cycle(5);
  run_cycle(1);
  EXPECT_EQ(shown(), "0|2 3 *4 ");
}

TEST_F(HlsWindowsTest, ACycleThatEndsBeforeARenditionBeganLeavesItInStepWithTheOthers) {
  begin(2);
  write_segments(3, 0);
  write_segments(3, 1);
  end();
  begin(2);
  write_segments(1, 0);
  end();
  begin(2);
  write_segments(1, 0);
  write_segments(1, 1);
  EXPECT_EQ(shown(0), "0|2 *3 *4 ");
  EXPECT_EQ(shown(1), "0|1 2 **3 ");
}

TEST_F(HlsWindowsTest, TheNextServerGoesOnWhereTheLastOneWasKilled) {
  run_cycle(4);
  begin();
  write_segments(2);
  const std::string before = shown();
  restart_server();
  EXPECT_EQ(shown(), before);
  restart_server();
  EXPECT_EQ(shown(), before);
  begin();
  write_segments(1);
  EXPECT_EQ(shown(), "0|*4 5 *6 ");
}

TEST_F(HlsWindowsTest, ADamagedWindowIsLostAlone) {
  run_cycle(4);
  for (const char* text : {"{", "[]", R"({"segment_time": "4"})"}) {
    std::ofstream(Config::HLS_DIRECTORY + "/windows/5.json") << text;
    restart_server();
    EXPECT_EQ(shown(), "") << text;
  }
  run_cycle(4);
  EXPECT_EQ(shown(), "0|1 2 3 ");
}

TEST_F(HlsWindowsTest, NoSegmentThatWasShownIsEverAnother) {
  begin();
  write_segments(4);
  EXPECT_EQ(shown(), "0|1 2 3 ");
  empty_directory();  // by somebody else
  end();
  run_cycle(1);
  EXPECT_EQ(shown(), "0|4 ");
}

TEST_F(HlsWindowsTest, WhatHasLeftThePlaylistIsFetchableForAWhileAndThenRemoved) {
  run_cycle(8);
  EXPECT_EQ(fs::exists(kept(segment_name(0, base_ + 1))), true);
  EXPECT_EQ(fs::exists(kept(segment_name(0, base_))), false);
  begin();
  write_segments(8);
  sweep(State::active);
  EXPECT_EQ(fs::exists(kept(segment_name(0, base_ + 7))), true);
  write_segments(11);
  sweep(State::active);
  EXPECT_FALSE(fs::exists(kept()));
  EXPECT_EQ(shown(), "1|16 17 18 ");
}

TEST_F(HlsWindowsTest, WhatHasLeftThePlaylistIsFetchableOverFurtherCyclesAndServers) {
  run_cycle(8);
  restart_server();
  begin();
  write_segments(4, 0, 1);  // 4 s, in which 4 segments of 4 s left a playlist of 12 s
  end();
  EXPECT_TRUE(fs::exists(kept(segment_name(0, base_ + 1))));
  run_cycle(3);
  EXPECT_FALSE(fs::exists(kept(segment_name(0, base_ + 1))));
  EXPECT_EQ(shown(), "1|*12 13 14 ");
}

TEST_F(HlsWindowsTest, AStreamThatEndsSaysSoForAWhile) {
  run_cycle(4);
  EXPECT_TRUE(windows_->is_published(5, false));
  world_.loop.advance(30s);
  EXPECT_TRUE(windows_->is_published(5, false));
  EXPECT_EQ(shown(), "0|1 2 3 ");
  world_.loop.advance(1s);
  EXPECT_FALSE(windows_->is_published(5, false));
  sweep(State::stopped);
  EXPECT_EQ(shown(), "");
  run_cycle(1);
  EXPECT_TRUE(windows_->is_published(5, true));
  EXPECT_EQ(shown(), "1|4 ");
  EXPECT_TRUE(windows_->is_published(5, false));
  world_.loop.advance(31s);
  sweep(State::deleted);
  EXPECT_TRUE(fs::is_empty(Config::HLS_DIRECTORY + "/windows"));
}

TEST_F(HlsWindowsTest, AListThatGrowsShowsNothingAgain) {
  begin();
  write_segments(6);
  EXPECT_EQ(shown(), "0|3 4 5 ");
  HlsCycle larger = cycle();
  larger.list_size = 5;
  end();
  restart_server();
  first_ = windows_->begin_cycle(5, larger);
  write_segments(1);
  EXPECT_EQ(shown(), "0|3 4 5 *6 ");
}

TEST(HlsWindowTest, TheTargetDurationStaysUnlessASegmentIsLonger) {
  const HlsCycle fixed{.segment_time = 3.5, .has_fixed_segments = true};
  const HlsCycle copied{.segment_time = 4};
  const struct {
    int current;
    const HlsCycle& cycle;
    std::vector<double> durations;
    int target;
  } cases[] = {{0, fixed, {}, 0},     {0, fixed, {1, 2}, 4}, {4, fixed, {4.4}, 4},  {4, fixed, {4.6}, 5},
               {5, fixed, {2}, 5},    {0, copied, {2}, 6},   {0, copied, {3}, 8},   {0, copied, {10}, 12},
               {6, copied, {6.4}, 6}, {6, copied, {7}, 7},   {0, copied, {0.04}, 6}};
  for (const auto& c : cases) {
    std::vector<HlsSegment> segments;
    for (const double duration : c.durations) segments.push_back({.duration = duration});
    EXPECT_EQ(choose_target_duration(c.current, c.cycle, segments), c.target);
  }
}

}  // namespace
}  // namespace weir
