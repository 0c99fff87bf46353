#include "backend/web/url.h"

#include "backend/web/request.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(ParseTarget, ReadsBothForms) {
  using Path = std::vector<std::string>;
  const std::tuple<const char*, const char*, Path, const char*> cases[] = {
      {"/a%20b//c?y=1&x=1+%2b&x=2%26&#z", "", {"a b", "", "c"}, "2&"},
      {"/a?x=1+%2B", "", {"a"}, "1 +"},
      {"/a://b/?x", "", {"a:", "", "b", ""}, ""},
      {"http://h:8080/a/b?x=1", "h:8080", {"a", "b"}, "1"},
      {"HTTPS://[::1]:80?x=/", "[::1]:80", {""}, "/"},
      {"http://h", "h", {""}, ""},
  };
  for (const auto& [text, host, path, x] : cases) {
    const auto target = parse_target(text);
    ASSERT_TRUE(target) << text;
    EXPECT_EQ(target->host, host) << text;
    EXPECT_EQ(target->path, path) << text;
    Request request;
    request.target = *target;
    EXPECT_EQ(request.query("x"), x) << text;
  }
}

TEST(ParseTarget, RefusesWhatCouldLeaveADirectory) {
  for (const char* target : {"/..", "/0/..", "/0/../1", "/0/%2e%2e", "/0/%2E.", "/.", "/0/%2fetc%2fpasswd",
                             "/0/..%2f..%2fetc", "/0/a%00.m3u8"})
    EXPECT_FALSE(parse_target(target)) << target;
  for (const char* target : {"", "*", "api", "/%", "/%4", "/%zz", "/%-1", "/a?b=%", "http:///a", "http://u:p@h/a",
                             "http://h h/a", "http://h/..", "http:", "ftp://h/a", "x?y=://z/a"})
    EXPECT_FALSE(parse_target(target)) << target;
}

}  // namespace
}  // namespace weir
