#include "backend/base/time_text.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(TimeText, IsTheTimeInUtcCutToMilliseconds) {
  using namespace std::chrono_literals;
  const WallTime second(1795461123s);
  const std::pair<WallTime, const char*> cases[] = {
      {second, "2026-11-23T19:12:03.000Z"},
      {second + 250ms, "2026-11-23T19:12:03.250Z"},
      {second + 999999us, "2026-11-23T19:12:03.999Z"},
      {WallTime(951868799999ms), "2000-02-29T23:59:59.999Z"},
      {WallTime(-1ms), "1969-12-31T23:59:59.999Z"},
  };
  for (const auto& [time, text] : cases) EXPECT_EQ(to_iso8601(time), text);
}

}  // namespace
}  // namespace weir
