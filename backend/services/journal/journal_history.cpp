#include "backend/services/journal/journal_history.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>

#include "backend/base/log.h"
#include "backend/base/mask_passwords.h"
#include "backend/platform/loop.h"
#include "backend/platform/timeout.h"

namespace weir {

namespace {

using namespace std::chrono_literals;

// From the first entry to the write that holds it: with the write itself a second at most.
constexpr auto write_interval = 900ms;
constexpr auto retry_interval = 10s;
// How far off the end of a run may be that a killed server could not tell.
constexpr auto alive_interval = 60s;
constexpr auto patience = 10s;
constexpr auto forever = 24h * 365;

constexpr std::size_t max_pending_bytes = 4 << 20;
constexpr std::size_t max_label_bytes = 200;
constexpr std::size_t max_text_bytes = 1000;

std::size_t size_of(const JournalEntry& entry) {
  return sizeof(entry) + entry.label.size() + entry.by.size() + entry.text.size();
}

// Cut before a character of UTF-8, without passwords: people copy databases.
void make_storable(std::string& text, std::size_t limit) {
  if (may_hold_passwords(text)) text = mask_passwords(text);
  if (text.size() <= limit) return;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  text.resize(limit);
}

}  // namespace

JournalHistory::JournalHistory(std::string path, HistoryLimits limits)
    : path_(std::move(path)), file_(std::make_shared<HistoryFile>(path_, limits)) {}

JournalHistory::~JournalHistory() { task_.kill(); }

Async<> JournalHistory::start() {
  write_now_ = true;
  last_write_ = now();
  task_ = spawn("history", work());
  const bool settled = co_await run_at_most("history", wait_until_settled(*this), patience);
  if (!settled) note_failure("the disk does not answer");
}

Async<> JournalHistory::wait_until_settled(JournalHistory& history) { co_await history.settled_.wait(); }

Async<> JournalHistory::close() {
  closing_ = true;
  wake();
  co_await run_at_most("history", task_.wait(), patience);
  if (!pending_.empty() || dropped_ > 0)
    log(LogLevel::warning, "History", fmt::format("{} entries could not be written", pending_.size() + dropped_));
}

void JournalHistory::read(const JournalEntry& entry) {
  if (entry.kind == JournalKind::status || entry.kind == JournalKind::launched) return;
  figures_.add(entry, 1, entry.time);
  JournalEntry& kept = pending_.emplace_back(entry);
  make_storable(kept.label, max_label_bytes);
  make_storable(kept.by, max_label_bytes);
  make_storable(kept.text, max_text_bytes);
  pending_bytes_ += size_of(kept);
  drop_excess();
  if (pending_since_) return;
  pending_since_ = now();
  wake();
}

void JournalHistory::drop_excess() {
  while (pending_bytes_ > max_pending_bytes) {
    pending_bytes_ -= size_of(pending_.front());
    pending_.pop_front();
    ++dropped_;
  }
}

Async<> JournalHistory::work() {
  for (;;) {
    while (!next_write() || *next_write() > now()) co_await pause();
    const bool last = closing_;
    co_await try_to_write();
    settled_.wake_all();
    if (!last) continue;
    co_await close_file();
    co_return;
  }
}

std::optional<TimePoint> JournalHistory::next_write() const {
  if (closing_ || write_now_) return now();
  if (retry_at_) return retry_at_;
  if (pending_since_) return *pending_since_ + write_interval;
  if (figures_.is_any_active()) return last_write_ + alive_interval;
  return std::nullopt;
}

Async<> JournalHistory::pause() {
  const std::optional<TimePoint> due = next_write();
  SleepWait wait = sleep(due ? *due - now() : forever);
  pause_ = &wait;
  co_await wait;
  pause_ = nullptr;
}

void JournalHistory::wake() noexcept {
  if (pause_) pause_->wake();
}

Async<> JournalHistory::try_to_write() {
  write_now_ = false;
  std::string reason;
  try {
    if (!opened_) co_await open();
    co_await write();
  } catch (const std::exception& failure) {
    reason = failure.what();
  }
  last_write_ = now();
  if (reason.empty())
    note_success();
  else
    note_failure(reason);
}

// Numbers that were given before the file could be read begin behind its own.
Async<> JournalHistory::open() {
  struct Job {
    std::shared_ptr<HistoryFile> file;
    WallTime now;
    HistoryFile::Past past;
    std::string notice;
  };
  const auto job = std::make_shared<Job>(Job{file_, Loop::current().clock().wall(), {}, {}});
  co_await thread_.run([job] {
    job->past = job->file->open(job->now);
    job->notice = job->file->take_notice();
  });
  opened_ = true;
  if (!job->notice.empty()) log(LogLevel::error, "History", job->notice);
  figures_.prepend(std::move(job->past.figures));
  open_failures_ = std::move(job->past.open_failures);
  const std::uint64_t next = job->past.next_number;
  const std::uint64_t first = pending_.empty() ? journal().next_number() : pending_.front().number;
  if (first >= next) co_return;
  journal().continue_from(journal().next_number() + next - first);
  for (JournalEntry& entry : pending_) entry.number += next - first;
}

Async<> JournalHistory::write() {
  struct Job {
    std::shared_ptr<HistoryFile> file;
    WallTime now;
    bool again;
    std::uint64_t next_number;
    std::vector<JournalEntry> entries;
    std::string notice;
  };
  const auto job = std::make_shared<Job>(
      Job{file_, Loop::current().clock().wall(), !failure_.empty(), journal().next_number(), {}, {}});
  job->entries.assign(std::make_move_iterator(pending_.begin()), std::make_move_iterator(pending_.end()));
  pending_.clear();
  pending_bytes_ = 0;
  pending_since_.reset();
  std::exception_ptr failure;
  try {
    co_await thread_.run([job] {
      if (job->again) job->file->reopen();
      job->file->write(job->entries, job->now, job->next_number);
      job->notice = job->file->take_notice();
    });
  } catch (const std::exception&) {
    failure = std::current_exception();
  }
  if (!job->notice.empty()) log(LogLevel::error, "History", job->notice);
  if (!failure) co_return;
  // The thread has let go of them.
  pending_.insert(pending_.begin(), std::make_move_iterator(job->entries.begin()),
                  std::make_move_iterator(job->entries.end()));
  pending_bytes_ = 0;
  for (const JournalEntry& entry : pending_) pending_bytes_ += size_of(entry);
  drop_excess();
  std::rethrow_exception(failure);
}

void JournalHistory::note_failure(const std::string& reason) {
  retry_at_ = now() + retry_interval;
  if (failure_.empty())
    log(LogLevel::error, "History",
        fmt::format("{} can't be written: {}; new entries are kept in memory, and it is tried again every {} s", path_,
                    reason, retry_interval.count()));
  failure_ = reason;
}

void JournalHistory::note_success() {
  retry_at_.reset();
  const bool has_failed = !std::exchange(failure_, {}).empty();
  if (!has_failed && dropped_ == 0) return;
  log(has_failed ? LogLevel::info : LogLevel::warning, "History",
      fmt::format("{} is written {}; {} entries were lost", path_, has_failed ? "again" : "too slowly",
                  std::exchange(dropped_, 0)));
}

Async<> JournalHistory::close_file() {
  co_await thread_.run([file = file_] { file->close(); });
}

struct JournalHistory::Lookup {
  std::shared_ptr<HistoryFile> file;
  HistoryQuery query;
  std::vector<HistoryEntry> found;
  std::string notice;
};

Async<std::vector<HistoryEntry>> JournalHistory::find(HistoryQuery query) {
  if (task_.dead()) throw HistoryUnavailable("The history is closed");
  if (!opened_ && !failure_.empty()) throw HistoryUnavailable("The history can't be opened: " + failure_);
  const auto lookup = std::make_shared<Lookup>(Lookup{file_, std::move(query), {}, {}});
  bool found = false;
  std::string reason = "the disk does not answer";
  try {
    found = co_await run_at_most("history", look_up(*this, lookup), patience);
  } catch (const std::exception& failure) {
    reason = failure.what();
  }
  if (!found) throw HistoryUnavailable("The history can't be read: " + reason);
  if (!lookup->notice.empty()) log(LogLevel::error, "History", lookup->notice);
  co_return std::move(lookup->found);
}

// What waits to be written is written before.
Async<> JournalHistory::look_up(JournalHistory& history, std::shared_ptr<Lookup> lookup) {
  const std::uint64_t newest = history.pending_.empty() ? 0 : history.pending_.back().number;
  while (history.failure_.empty() && !history.pending_.empty() && history.pending_.front().number <= newest) {
    history.write_now_ = true;
    history.wake();
    co_await history.settled_.wait();
  }
  co_await history.thread_.run([lookup] {
    lookup->found = lookup->file->find(lookup->query);
    lookup->notice = lookup->file->take_notice();
  });
}

HistorySummary JournalHistory::summarize(long long stream_id) const {
  return figures_.summarize(stream_id, Loop::current().clock().wall());
}

}  // namespace weir
