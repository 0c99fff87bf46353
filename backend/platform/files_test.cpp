#include "backend/platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <system_error>

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
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
}

TEST(FilesTest, RefusesWhatIsNoSmallRegularFile) {
  const test::TemporaryDirectory directory;
  const auto path = directory.path() / "pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_THROW(read_file(path, 100), std::system_error) << "a pipe would block the loop";
  EXPECT_THROW(read_file(directory.path(), 100), std::system_error);
  EXPECT_THROW(read_file(directory.path() / "missing", 100), std::system_error);
  replace_file(directory.path() / "large", std::string(101, 'x'));
  EXPECT_THROW(read_file(directory.path() / "large", 100), std::system_error);
}

class DirectoryWatchTest : public testing::Test {
 protected:
  static Async<> collect(std::string path, std::vector<DirectoryEvent>& into) {
    DirectoryWatch watch(path);
    for (;;) {
      for (DirectoryEvent& event : co_await watch.next()) into.push_back(std::move(event));
    }
  }

  test::TemporaryDirectory directory;
  test::TestLoop loop;
  std::vector<DirectoryEvent> events;
};

TEST_F(DirectoryWatchTest, SharesOneInstanceAmongManyDirectories) {
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
  EXPECT_EQ(events.size(), static_cast<std::size_t>(count));
  EXPECT_TRUE(loop.failures.empty());
}

TEST_F(DirectoryWatchTest, TellsThatEventsWereLost) {
  spawn("watch", collect(directory.path(), events));
  loop.settle();
  // One more than the kernel queues, each of its own name: equal events in a row are one.
  int queue_length = 0;
  ASSERT_TRUE(std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue_length);
  for (int i = 0; i <= queue_length; ++i) std::ofstream(directory.path() / std::to_string(i)) << "";
  loop.settle();
  EXPECT_EQ(events.back().kind, DirectoryEvent::Kind::overflow);
}

}  // namespace
}  // namespace weir
