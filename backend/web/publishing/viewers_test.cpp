#include "backend/web/publishing/viewers.h"

#include <gtest/gtest.h>

#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

TEST(ViewersTest, LimitsCountViewersOfBothKindsAndForgetThoseThatLeft) {
  test::TestLoop loop;
  const auto viewers = std::make_shared<Viewers>(ViewerLimits{.total = 4, .per_stream = 3, .per_address = 2});
  EXPECT_TRUE(viewers->admit_hls(1, "a", 12s));
  auto seat = viewers->admit_http(1, "a");
  EXPECT_TRUE(seat);
  EXPECT_FALSE(viewers->admit_http(2, "a")) << "two of one address";
  EXPECT_TRUE(viewers->admit_hls(1, "a", 12s)) << "the same viewer";
  EXPECT_TRUE(viewers->admit_hls(1, "b", 60s));
  EXPECT_FALSE(viewers->admit_hls(1, "c", 12s)) << "three of one stream";
  EXPECT_TRUE(viewers->admit_hls(2, "c", 12s));
  EXPECT_FALSE(viewers->admit_hls(2, "d", 12s)) << "four in all";
  seat.reset();
  EXPECT_TRUE(viewers->admit_hls(2, "d", 12s));
  loop.advance(13s);
  EXPECT_TRUE(viewers->admit_http(1, "e"));
  EXPECT_TRUE(viewers->admit_hls(1, "b", 12s)) << "still there";
}

}  // namespace
}  // namespace weir
