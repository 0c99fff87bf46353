#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "backend/services/journal/history_figures.h"
#include "backend/services/journal/journal_database.h"

namespace weir {

/// The database with the care for its file: a damaged one is renamed to "….broken", in place of an earlier one, and a
/// new one begins. For one thread at a time. What else fails throws `SqliteError`; the call can be repeated later.
class HistoryFile {
 public:
  HistoryFile(std::string path, HistoryLimits limits) : path_(std::move(path)), limits_(limits) {}

  /// What the file holds of earlier runs of the server.
  struct Past {
    std::uint64_t next_number = 1;  ///< that of the first entry of this run
    HistoryFigures figures;
    std::vector<JournalEntry> open_failures;
  };
  /// Opens the file for the first time in this run of the server.
  Past open(WallTime now);
  /// `next_number`: the journal's.
  void write(std::span<const JournalEntry> entries, WallTime now, std::uint64_t next_number);
  std::vector<HistoryEntry> find(const HistoryQuery& query);
  void close() { database_.reset(); }
  /// Opens the file anew, before a write is tried again.
  void reopen();

  /// What an operator should know of since the last call; empty for nothing.
  std::string take_notice() { return std::exchange(notice_, {}); }

 private:
  JournalDatabase& database();
  template <class Operation>
  auto with_database(Operation operation);
  void set_aside(const std::string& reason);

  std::string path_;
  HistoryLimits limits_;
  std::optional<JournalDatabase> database_;
  std::string notice_;
};

}  // namespace weir
