#include "backend/web/publishing/live_ring.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

using namespace std::chrono_literals;

class LiveRingTest : public testing::Test {
 protected:
  void push(const std::string& bytes, std::optional<std::size_t> start = std::nullopt, bool watched = true) {
    ring_.push({bytes, start, start ? "<" : ""}, now_, watched);
  }
  std::string read(LiveRing::Position& position, std::size_t max_bytes = 1000) const {
    std::string text;
    for (const LiveSlice& slice : ring_.read(position, max_bytes)) text += slice.bytes;
    return text;
  }

  TimePoint now_{1h};
  LiveRing ring_{{.bytes = 20, .lag = 10s}};
};

TEST_F(LiveRingTest, ReadersBeginAtTheLatestStartAndReadOnFromThere) {
  LiveRing::Position early = ring_.begin();
  push("ab");
  EXPECT_EQ(read(early), "");
  push("cdE", 2);
  push("f");
  EXPECT_EQ(read(early), "<Ef");
  push("gH", 1);
  LiveRing::Position late = ring_.begin();
  EXPECT_EQ(read(late), "<H");
  EXPECT_EQ(read(late), "");
  push("ij");
  push("k");
  EXPECT_EQ(read(early, 3), "gHij");
  EXPECT_EQ(read(early), "k");
  EXPECT_EQ(ring_.read(late, 100)[0].bytes.data(), ring_.read(late = {4, true}, 100)[0].bytes.data());
}

TEST_F(LiveRingTest, BoundsBytesAndLagAndLosesWhoIsTooSlow) {
  push("Abcdefgh", 0);
  LiveRing::Position slow = ring_.begin();
  LiveRing::Position waiting{0, false};
  EXPECT_EQ(read(slow), "<Abcdefgh");
  push("ijklmnop");
  push("qrstuvwx");
  EXPECT_LE(ring_.bytes(), 20u);
  EXPECT_EQ(read(slow), "ijklmnopqrstuvwx");
  push("yz012345");
  LiveRing::Position late{1, true};
  EXPECT_EQ(read(late), "");
  EXPECT_TRUE(late.lost);
  EXPECT_EQ(read(waiting), "");
  EXPECT_FALSE(waiting.lost);

  now_ += 11s;
  push("S", 0);
  EXPECT_EQ(ring_.bytes(), 2u) << "what is older than the lag and before the latest start";
  EXPECT_EQ(read(waiting), "<S");
}

TEST_F(LiveRingTest, CountsTheLagFromTheLatestStart) {
  push("Ab", 0);
  LiveRing::Position slow = ring_.begin();
  now_ += 9s;
  push("Cd", 0);
  now_ += 9s;
  push("ef");
  EXPECT_EQ(read(slow), "<AbCdef");
  push("Gh", 0);
  EXPECT_EQ(read(slow = {1, true}), "CdefGh");
  EXPECT_EQ(read(slow = {0, true}), "");
}

TEST_F(LiveRingTest, KeepsOnlyWhatIsSinceTheLatestStartForNobody) {
  push("Ab", 0, false);
  now_ += 1h;
  push("cd", std::nullopt, false);
  LiveRing::Position late = ring_.begin();
  EXPECT_EQ(read(late), "<Abcd");
  push("Ef", 0, false);
  EXPECT_EQ(ring_.bytes(), 3u);
}

}  // namespace
}  // namespace weir
