#include "backend/web/publishing/publishing_links.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class PublishingLinksTest : public testing::Test {
 protected:
  PublishingLink add(PublishingLinks& links, long long stream, std::chrono::seconds lifetime) {
    const auto now = std::chrono::floor<std::chrono::seconds>(loop_.clock().wall().time_since_epoch());
    return loop_.run(links.add({.stream = stream, .name = "a", .expires = now + lifetime}));
  }
  std::string path(const char* name) const { return directory_.path() / name; }

  test::TestLoop loop_;
  test::TemporaryDirectory directory_;
};

TEST_F(PublishingLinksTest, ATokenIsValidForItsStreamUntilItExpiresOrIsRevokedAlsoAfterARestart) {
  std::string token;
  std::string revoked;
  {
    PublishingLinks links(directory_.path());
    token = links.make_token(add(links, 3, 100s));
    const PublishingLink other = add(links, 3, 100s);
    revoked = links.make_token(other);
    EXPECT_TRUE(links.is_valid(3, revoked));
    EXPECT_FALSE(loop_.run(links.remove(4, other.id))) << "it is another stream's";
    EXPECT_TRUE(loop_.run(links.remove(3, other.id)));
  }
  for (const char* name : {"links.key", "links.json"})
    EXPECT_EQ(fs::status(path(name)).permissions(), fs::perms::owner_read | fs::perms::owner_write) << name;
  PublishingLinks links(directory_.path());
  EXPECT_NE(links.make_token(add(links, 3, 100s)), revoked);
  EXPECT_TRUE(links.is_valid(3, token));
  EXPECT_FALSE(links.is_valid(3, revoked));
  EXPECT_FALSE(links.is_valid(4, token));
  for (const std::string& wrong :
       {std::string(), std::string("1"), std::string(".."), token + "A", "2" + token.substr(1), token.substr(0, 20),
        token.substr(0, token.find('.') + 1) + "9" + token.substr(token.find('.') + 2)})
    EXPECT_FALSE(links.is_valid(3, wrong)) << wrong;
  loop_.advance(99s);
  EXPECT_TRUE(links.is_valid(3, token));
  loop_.advance(1s);
  EXPECT_FALSE(links.is_valid(3, token));
  EXPECT_TRUE(links.of_stream(3).empty());
}

TEST_F(PublishingLinksTest, ADeletedStreamsLinksAreForgottenAndTheNumberIsBounded) {
  PublishingLinks links(directory_.path());
  const std::string token = links.make_token(add(links, 3, 100s));
  journal().record({.kind = JournalKind::deleted, .stream_id = 3});
  EXPECT_FALSE(links.is_valid(3, token));
  EXPECT_FALSE(PublishingLinks(directory_.path()).is_valid(3, token));
  for (std::size_t i = 0; i < PublishingLinks::max_links_per_stream; ++i) add(links, 7, 10s);
  EXPECT_THROW(add(links, 7, 10s), std::length_error);
  add(links, 8, 10s);
  loop_.advance(11s);
  add(links, 7, 10s);
}

TEST_F(PublishingLinksTest, UnreadableLinksAreSetAsideAndAForeignKeyIsRefused) {
  std::ofstream(path("links.json")) << "{\"links\": [{}]}";
  EXPECT_TRUE(PublishingLinks(directory_.path()).of_stream(0).empty());
  EXPECT_TRUE(fs::exists(path("links.json.broken")));
  std::ofstream(path("links.key")) << "short";
  EXPECT_ANY_THROW(PublishingLinks(directory_.path()));
}

}  // namespace
}  // namespace weir
