#include "backend/web/api/openapi_document.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <iterator>
#include <set>

#include "backend/services/journal/journal_history.h"
#include "backend/web/web_application.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

// A path stands behind two blanks below "paths:", its methods behind four: "GET /api/streams/{id}".
std::set<std::string> documented_calls() {
  std::vector<std::string> lines;
  boost::split(lines, openapi_document(), boost::is_any_of("\n"));
  std::set<std::string> calls;
  std::string path;
  for (const std::string& line : lines) {
    const std::string name = line.substr(0, line.find(':'));
    if (!line.starts_with(' ')) path.clear();
    if (line.starts_with("  /")) path = name.substr(2);
    if (path.empty() || !name.starts_with("    ") || name[4] == ' ') continue;
    const std::string method = boost::to_upper_copy(name.substr(4));
    if (method != "PARAMETERS") calls.insert(method + " " + path);
  }
  return calls;
}

TEST(OpenApiDocument, DescribesTheCallsThatTheServerAnswersAndNoOthers) {
  test::FakeSiblings world;
  ServerStreamManager manager;
  HlsWindows windows;
  JournalHistory history(world.directory.path() / "journal.db", {});
  const WebApplication web(manager, world.profiles, windows, history, nullptr);
  std::set<std::string> routed;
  for (const std::string& route : web.router().list()) routed.insert(boost::erase_all_copy(route, ":number"));
  const std::set<std::string> documented = documented_calls();
  std::vector<std::string> different;
  std::ranges::set_symmetric_difference(documented, routed, std::back_inserter(different));
  EXPECT_EQ(different, std::vector<std::string>());
}

}  // namespace
}  // namespace weir
