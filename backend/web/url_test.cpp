#include "backend/web/url.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(ParseTarget, RefusesWhatCouldLeaveADirectory) {
  for (const char* target :
       {"", "*", "api", "/..", "/0/..", "/0/../1", "/0/%2e%2e", "/0/%2E.", "/.", "/0/%2fetc%2fpasswd",
        "/0/..%2f..%2fetc", "/0/a%00.m3u8", "/%", "/%4", "/%zz", "/%-1", "/a?b=%"})
    EXPECT_FALSE(parse_target(target)) << target;
}

}  // namespace
}  // namespace weir
