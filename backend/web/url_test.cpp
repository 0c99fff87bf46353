#include "backend/web/url.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

using Segments = std::vector<std::string>;

TEST(ParseTarget, RefusesWhatCouldLeaveADirectory) {
  for (const char* target :
       {"", "*", "api", "/..", "/0/..", "/0/../1", "/0/%2e%2e", "/0/%2E.", "/.", "/0/%2fetc%2fpasswd",
        "/0/..%2f..%2fetc", "/0/a%00.m3u8", "/%", "/%4", "/%zz", "/%-1", "/a?b=%"})
    EXPECT_FALSE(parse_target(target)) << target;
}

TEST(ParseTarget, ReadsTheQuery) {
  const auto target = parse_target("/x?url=udp%3A%2F%2Fa%3Fb%3D1&empty=&flag&two+words=a+b%2B&empty=last#fragment");
  ASSERT_TRUE(target);
  const std::map<std::string, std::string, std::less<>> expected{
      {"url", "udp://a?b=1"}, {"empty", "last"}, {"flag", ""}, {"two words", "a b+"}};
  EXPECT_EQ(target->query, expected);
}

}  // namespace
}  // namespace weir
