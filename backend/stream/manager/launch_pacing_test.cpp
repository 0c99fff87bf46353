#include "backend/stream/manager/launch_pacing.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(LaunchPacingTest, LaunchesOneForEachIdleProcessorAndAtMostTenAtATime) {
  const std::tuple<int, double, int> cases[] = {{0, 0, 0}, {0, 0.4, 0}, {0, 0.6, 1}, {0, 2, 2},
                                                {9, 2, 1}, {10, 2, 0},  {12, 2, 0},  {0, 64, 10}};
  for (const auto& [under_way, idle_processors, launches] : cases)
    EXPECT_EQ(count_launches(under_way, idle_processors), launches) << under_way << " " << idle_processors;
}

}  // namespace
}  // namespace weir
