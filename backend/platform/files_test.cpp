#include "backend/platform/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "backend/platform/descriptor.h"
#include "backend/platform/directory_watch.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

ino_t inode_of(const std::filesystem::path& path) {
  struct stat status{};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_ino;
}

TEST(FilesTest, ReplacesAFileWholeUnlessItHoldsThatAlready) {
  const test::TemporaryDirectory directory;
  const auto path = directory.path() / "a.conf";
  replace_file(path, "old");
  replace_file(path, "new");
  const ino_t before = inode_of(path);
  replace_file(path, "new");
  EXPECT_EQ(inode_of(path), before);
  EXPECT_EQ(read_file(path, 100), "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
  const auto pipe = directory.path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THROW(read_file(pipe, 100), std::system_error) << "to open it would block";
}

TEST(FilesTest, UpdatesAFewBytesInPlaceAndReplacesWhateverElseChanges) {
  const test::TemporaryDirectory directory;
  const auto path = directory.path() / "a.conf";
  const std::string text(1024, 'a');
  const auto with = [&](std::size_t at, const char* other) { return std::string(text).replace(at, 3, other); };
  const std::tuple<std::string, std::string, bool> cases[] = {
      {text, text, true},
      {text, with(0, "bab"), true},
      {text, with(509, "bab"), true},
      {text, with(510, "bab"), false},  // two sectors
      {text, with(1021, "bab"), true},
      {text, text + "b", false},
      {with(0, "bbb"), with(1021, "bbb"), false},
      {"", "b", false},
  };
  for (const auto& [before, after, in_place] : cases) {
    replace_file(path, before);
    // Keeps the inode's number from being given again.
    const Descriptor file(::open(path.c_str(), O_RDONLY));
    const ino_t inode = inode_of(path);
    update_file(path, after);
    EXPECT_EQ(inode_of(path) == inode, in_place) << after;
    EXPECT_EQ(read_file(path, 2000), after);
  }
  update_file(path, "new");
  std::filesystem::create_hard_link(path, directory.path() / "backup");
  update_file(path, "low");
  EXPECT_EQ(read_file(directory.path() / "backup", 100), "new") << "a link to the file keeps what it had";
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
