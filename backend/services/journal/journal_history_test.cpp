#include "backend/services/journal/journal_history.h"

#include <fmt/core.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>

#include "backend/base/log.h"
#include "backend/platform/sleep.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// The largest file that this process can write, while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    set(bytes);
  }
  ~FileSizeLimit() { set(before_.rlim_cur); }

 private:
  void set(rlim_t bytes) const {
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  rlimit before_{};
};

class JournalHistoryTest : public testing::Test {
 protected:
  JournalHistoryTest() {
    set_log_sink([this](LogLevel, std::string_view, std::string_view text) { log_lines_.emplace_back(text); });
  }
  ~JournalHistoryTest() override { set_log_sink({}); }

  void stop() {
    loop_.run(history_->close());
    history_.reset();
  }
  void start() {
    history_ = std::make_unique<JournalHistory>(path_, HistoryLimits{.entries_per_stream = 1'000'000});
    loop_.run(history_->start());
  }
  static void tell(JournalKind kind = JournalKind::changed, const std::string& text = {}) {
    journal().record({.kind = kind, .stream_id = 1, .label = "News", .text = text});
  }
  static std::chrono::nanoseconds time_to_wake() { return *Loop::current().timers().next() - now(); }
  std::vector<HistoryEntry> find(const HistoryQuery& query = {}) { return loop_.run(history_->find(query)); }
  std::size_t count() { return find({.limit = 1'000'000}).size(); }
  /// The time of the next try to write comes, which works.
  void retry() {
    loop_.advance(10s);
    EXPECT_TRUE(loop_.run_until([&] { return log_lines_.back().find("is written again") != std::string::npos; }, 10s));
  }

  test::TemporaryDirectory directory_;
  const std::string path_ = directory_.path() / "journal.db";
  test::TestLoop loop_;
  std::vector<std::string> log_lines_;
  std::unique_ptr<JournalHistory> history_;
};

TEST_F(JournalHistoryTest, WakesOnlyWhereSomethingIsToBeWrittenOrAStreamRuns) {
  start();
  EXPECT_GT(time_to_wake(), 24h);
  tell(JournalKind::running);
  loop_.advance(950ms);
  EXPECT_TRUE(loop_.run_until([] { return time_to_wake() > 1s && time_to_wake() <= 1min; }, 10s));
}

TEST_F(JournalHistoryTest, FindsWhatWasToldJustNowAndGoesOnWithItsNumbersAfterARestart) {
  start();
  tell();
  const std::uint64_t first = find().at(0).entry.number;
  tell();
  stop();
  journal().continue_from(1);
  start();
  EXPECT_GE(journal().next_number(), first + 2);
  tell();
  EXPECT_EQ(find().at(0).entry.number, journal().next_number() - 1);
  EXPECT_EQ(count(), 3U) << "the end wrote the rest";
  tell(JournalKind::status);
  tell();
  const std::uint64_t next = journal().next_number();
  history_.reset();  // killed
  journal().continue_from(1);
  start();
  EXPECT_GE(journal().next_number(), next) << "what was not written has numbers, too";
}

TEST_F(JournalHistoryTest, KeepsNoPasswordsAndNoMoreOfATextThanItNeeds) {
  start();
  tell(JournalKind::notice, "rtmp://u:secret@h/ fails");
  tell(JournalKind::notice, std::string(999, 'x') + "\u00fc");
  EXPECT_EQ(find().at(0).entry.text, std::string(999, 'x'));
  EXPECT_EQ(find().at(1).entry.text, "rtmp://u:***@h/ fails");
}

TEST_F(JournalHistoryTest, ADamagedFileIsSetAsideWithOneLine) {
  start();
  for (int i = 0; i < 500; ++i) tell(JournalKind::notice, std::string(100, 'x'));
  stop();
  const auto overwrite = [&](std::size_t at, std::size_t size) {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(at)) << std::string(size, '\xA5');
  };
  const std::pair<const char*, std::function<void()>> damages[] = {
      {"no database", [&] { std::ofstream(path_) << std::string(5000, 'x'); }},
      {"damaged pages", [&] { overwrite(4096, 12'000); }},
      {"of a newer version", [&] { Sqlite(path_).execute("PRAGMA user_version = 99"); }},
  };
  for (const auto& [name, damage] : damages) {
    log_lines_.clear();
    damage();
    start();
    tell();
    EXPECT_EQ(count(), 1U) << name;
    EXPECT_TRUE(fs::exists(path_ + ".broken")) << name;
    fs::remove(path_ + ".broken");
    EXPECT_EQ(log_lines_.size(), 1U) << name;
    stop();
  }
}

TEST_F(JournalHistoryTest, DamageThatIsMetWhileTheServerRunsLosesNoNewEntry) {
  start();
  for (int i = 0; i < 500; ++i) tell(JournalKind::notice, std::string(100, 'x'));
  EXPECT_EQ(count(), 500U);
  Sqlite(path_).execute("PRAGMA wal_checkpoint(TRUNCATE)");
  std::ofstream(path_, std::ios::in | std::ios::out) << std::string(20'000, '\xA5');
  for (int i = 0; i < 3; ++i) tell();
  EXPECT_EQ(count(), 3U);
  EXPECT_EQ(log_lines_.size(), 1U);
}

TEST_F(JournalHistoryTest, AFullDiskIsSaidOnceAndTheHistoryGoesOnWhenThereIsRoom) {
  start();
  tell();
  ASSERT_EQ(count(), 1U);
  {
    const FileSizeLimit full(100'000);
    for (int i = 0; i < 1000; ++i) tell(JournalKind::notice, std::string(500, 'x'));
    loop_.advance(1s);
    ASSERT_TRUE(loop_.run_until([&] { return log_lines_.size() == 1; }, 10s));
    loop_.advance(10s);
    EXPECT_EQ(find().size(), 1U) << "what was written can be read, after the second try";
    tell();
  }
  EXPECT_EQ(log_lines_.size(), 1U);
  EXPECT_NE(log_lines_[0].find(path_ + " can't be written: "), std::string::npos) << log_lines_[0];
  retry();
  EXPECT_EQ(log_lines_.back(), path_ + " is written again; 0 entries were lost");
  EXPECT_EQ(count(), 1002U);
}

TEST_F(JournalHistoryTest, WhileItCannotBeWrittenTheNewestEntriesAreKeptInLimitedMemory) {
  fs::create_directory(path_);
  start();
  EXPECT_THROW(find(), HistoryUnavailable);
  const std::uint64_t first = journal().next_number();
  for (int i = 0; i < 10'000; ++i) tell(JournalKind::notice, std::string(1000, 'x'));
  EXPECT_EQ(log_lines_.size(), 1U);
  fs::remove(path_);
  retry();
  const std::size_t kept = count();
  EXPECT_GT(kept, 2000U);
  EXPECT_LT(kept, 4000U);
  EXPECT_EQ(log_lines_.back(), fmt::format("{} is written again; {} entries were lost", path_, 10'000 - kept));
  EXPECT_EQ(find({.limit = 1}).at(0).entry.number, first + 9999);
}

TEST_F(JournalHistoryTest, EntriesThatComeFasterThanTheyAreWrittenAreCountedAsLost) {
  start();
  for (int i = 0; i < 10'000; ++i) tell(JournalKind::notice, std::string(1000, 'x'));
  const std::size_t kept = count();
  EXPECT_EQ(log_lines_,
            std::vector{fmt::format("{} is written too slowly; {} entries were lost", path_, 10'000 - kept)});
}

TEST_F(JournalHistoryTest, ALockedFileIsOpenedLaterAndTheNumbersOfEntriesUntilThenFollowItsOwn) {
  start();
  tell();
  tell();
  stop();
  journal().continue_from(1);
  auto other = std::make_unique<Sqlite>(path_);
  other->execute("PRAGMA locking_mode = EXCLUSIVE; BEGIN IMMEDIATE; INSERT INTO state VALUES('x', 1); COMMIT");
  start();
  EXPECT_EQ(log_lines_.size(), 1U);
  tell(JournalKind::notice, "late");
  other.reset();
  retry();
  const std::vector<HistoryEntry> found = find();
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].entry.text, "late");
  EXPECT_EQ(journal().next_number(), found[0].entry.number + 1);
}

}  // namespace
}  // namespace weir
