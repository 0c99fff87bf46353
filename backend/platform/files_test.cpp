#include "backend/platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "backend/platform/directory_watch.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

TEST(FilesTest, ReplacesAFileWholeUnlessItHoldsThatAlready) {
  const test::TemporaryDirectory directory;
  const auto path = directory.path() / "a.conf";
  replace_file(path, "old");
  replace_file(path, "new");
  struct stat before{};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  replace_file(path, "new");
  struct stat after{};
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(read_file(path, 100), "new");
  EXPECT_THROW(read_file("/dev/null", 100), std::system_error) << "no regular file";
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST(DirectoryWatchTest, SharesOneInstanceAmongManyDirectories) {
  const auto collect = [](std::string path, int& into) -> Async<> {
    DirectoryWatch watch(path);
    for (;;) into += static_cast<int>((co_await watch.next()).size());
  };
  const test::TemporaryDirectory directory;
  test::TestLoop loop;
  int events = 0;
  // Far beyond the number of inotify instances that the kernel allows a user.
  constexpr int count = 300;
  for (int i = 0; i < count; ++i) {
    const auto path = directory.path() / std::to_string(i);
    std::filesystem::create_directory(path);
    spawn("watch", collect(path, events));
  }
  loop.settle();
  for (int i = 0; i < count; ++i) std::ofstream(directory.path() / std::to_string(i) / "s.ts") << "x";
  loop.settle();
  EXPECT_EQ(events, count);
  EXPECT_TRUE(loop.failures.empty());
}

}  // namespace
}  // namespace weir
