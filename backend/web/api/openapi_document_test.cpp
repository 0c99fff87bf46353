#include "backend/web/api/openapi_document.h"

#include <gtest/gtest.h>

#include <boost/algorithm/string/erase.hpp>

#include "backend/services/journal/journal_history.h"
#include "backend/web/web_application.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

TEST(OpenApiDocument, DescribesEachPathThatTheServerAnswers) {
  test::FakeSiblings world;
  ServerStreamManager manager;
  HlsWindows windows;
  JournalHistory history(world.directory.path() / "journal.db", {});
  const WebApplication web(manager, world.profiles, windows, history, nullptr);
  for (const std::string& route : web.router().list()) {
    const std::string path = boost::erase_all_copy(route.substr(route.find(' ') + 1), ":number");
    EXPECT_NE(openapi_document().find("\n  " + path + ":\n"), std::string::npos) << path;
  }
}

}  // namespace
}  // namespace weir
