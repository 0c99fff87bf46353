#include "backend/base/repeat_limit.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

using namespace std::chrono_literals;

// A line every three seconds: five are written, then one a minute is reported, and none once they have ended.
TEST(RepeatLimitTest, WritesFiveThenReportsOnceAMinuteAndForgetsWhatHasEnded) {
  RepeatLimit limit;
  RepeatLimit::Time time{1h};
  int written = 0;
  std::vector<int> reports;
  const auto pass = [&](std::chrono::seconds until, bool repeats) {
    for (auto passed = 0s; passed < until; passed += 1s, time += 1s) {
      if (repeats && passed % 3s == 0s) written += limit.allows(1, time);
      if (passed % 10s == 0s) limit.collect(time, [&](std::uint64_t, int count) { reports.push_back(count); });
    }
  };
  pass(200s, true);
  EXPECT_EQ(written, 5);
  EXPECT_EQ(reports, (std::vector<int>{22, 20}));
  EXPECT_TRUE(limit.allows(2, time)) << "another line";
  pass(200s, false);
  EXPECT_EQ(reports, (std::vector<int>{22, 20, 20}));
  EXPECT_TRUE(limit.empty());
  EXPECT_TRUE(limit.allows(1, time)) << "it comes again after a pause";
}

}  // namespace
}  // namespace weir
