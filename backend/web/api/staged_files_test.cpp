#include "backend/web/api/staged_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "backend/platform/files.h"
#include "backend/platform/loop.h"
#include "backend/platform/task.h"
#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

namespace fs = std::filesystem;

// Changes a, adds b, deletes c, and ends as a server that is killed.
Async<> change_and_die(std::string directory, bool commits) {
  const std::string a = directory + "/a";
  const std::string b = directory + "/b";
  const std::string c = directory + "/c";
  StagedFiles files(directory + "/record");
  files.begin({a, b, c});
  files.stage(a, {{"is", "new"}});
  files.stage(b, {{"is", "new"}});
  co_await files.sync();
  files.put(a);
  files.put(b);
  files.keep(c);
  fs::remove(c);
  if (commits) co_await files.commit();
  ::_exit(0);
}

void run_and_die(const std::string& directory, bool commits) {
  Loop loop;
  const Task task = spawn("changes", change_and_die(directory, commits));
  loop.run();
}

std::map<std::string, std::string> read_all(const fs::path& directory) {
  std::map<std::string, std::string> all;
  for (const std::string& name : names_in(directory))
    all[name] = nlohmann::json::parse(read_file(directory / name, 1000)).at("is");
  return all;
}

TEST(StagedFilesTest, TheNextStartTakesBackWhatAKilledServerHasNotCommitted) {
  using All = std::map<std::string, std::string>;
  const test::TemporaryDirectory directory;
  for (const bool commits : {false, true}) {
    for (const char* name : {"a", "c"}) std::ofstream(directory.path() / name) << R"({"is": "old"})";
    EXPECT_EXIT(run_and_die(directory.path(), commits), ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(StagedFiles::recover(directory.path() / "record"), !commits);
    EXPECT_EQ(read_all(directory.path()),
              commits ? (All{{"a", "new"}, {"b", "new"}}) : (All{{"a", "old"}, {"c", "old"}}));
  }
}

}  // namespace
}  // namespace weir
