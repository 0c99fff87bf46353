#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "backend/collaborators/history.h"
#include "backend/platform/helper_thread.h"
#include "backend/platform/sleep.h"
#include "backend/platform/task.h"
#include "backend/platform/wait_queue.h"
#include "backend/services/journal/history_figures.h"
#include "backend/services/journal/history_file.h"

namespace weir {

/// The history: keeps what the journal tells in a SQLite file. Entries are collected on the loop and written by a
/// thread, at most a second later; with nothing to write nobody wakes. While the file can't be written the newest
/// entries wait in memory and the writing is tried again. The log says once that it fails, and once that it works
/// again.
class JournalHistory final : public History, private JournalReader {
 public:
  JournalHistory(std::string path, HistoryLimits limits);
  ~JournalHistory() override;

  /// Opens the file and lets the journal continue its numbers. Goes on without the file when that takes longer than ten
  /// seconds; it is opened later then.
  Async<> start();
  /// Writes the rest and closes the file, in at most ten seconds.
  Async<> close();

  /// The failures of streams that the server before would have started again; empty without the file.
  const std::vector<JournalEntry>& open_failures() const noexcept { return open_failures_; }

  Async<std::vector<HistoryEntry>> find(HistoryQuery query) override;
  HistorySummary summarize(long long stream_id) const override;

 private:
  struct Lookup;

  void read(const JournalEntry& entry) override;
  void drop_excess();
  Async<> work();
  std::optional<TimePoint> next_write() const;
  Async<> pause();
  void wake() noexcept;
  Async<> try_to_write();
  Async<> open();
  Async<> write();
  void note_failure(const std::string& reason);
  void note_success();
  static Async<> wait_until_settled(JournalHistory& history);
  static Async<> look_up(JournalHistory& history, std::shared_ptr<Lookup> lookup);
  Async<> close_file();

  const std::string path_;
  std::shared_ptr<HistoryFile> file_;  ///< shared with the calls that are under way on the thread
  HelperThread thread_;
  HistoryFigures figures_;
  std::vector<JournalEntry> open_failures_;

  std::deque<JournalEntry> pending_;
  std::size_t pending_bytes_ = 0;
  std::size_t dropped_ = 0;  ///< entries that found no room while the file was not written
  std::optional<TimePoint> pending_since_;
  std::optional<TimePoint> retry_at_;  ///< set while the file can't be written
  std::string failure_;                ///< why; empty while it can
  TimePoint last_write_;
  bool opened_ = false;
  bool write_now_ = false;
  bool closing_ = false;

  Task task_;
  SleepWait* pause_ = nullptr;  ///< the task's wait for the next write
  WaitQueue settled_;           ///< woken after every attempt to write
};

}  // namespace weir
