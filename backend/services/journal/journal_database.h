#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/collaborators/history.h"
#include "backend/services/journal/sqlite.h"

namespace weir {

/// How much of the past is kept.
struct HistoryLimits {
  std::size_t entries_per_stream = 2000;
  std::chrono::days age{90};
};

/// The history in a SQLite file, for one thread at a time. The numbers of its entries ascend with their times. What
/// fails throws `SqliteError`; a call that changes something changes all of it then, or nothing.
class JournalDatabase {
 public:
  /// Opens the file, or creates it.
  JournalDatabase(const std::string& path, HistoryLimits limits);

  /// A number that no entry had in an earlier run of the server, and none of the file has.
  std::uint64_t next_number();
  /// Keeps the numbers from `next` on, some thousands of them, from being given again by a later run of the server:
  /// entries that are not kept have numbers, too.
  void reserve_numbers(std::uint64_t next);
  /// Adds what an earlier run of the server could not: the ends of what was at work when it was last known alive.
  void close_open_runs();
  /// The failures of streams that were neither started nor stopped since.
  std::vector<JournalEntry> open_failures();
  /// Adds entries in the order of their numbers and removes what the limits allow no more. Status changes and launches
  /// are left out: other entries say the same. `now`: the server is known to be alive at this time.
  void write(std::span<const JournalEntry> entries, WallTime now);

  std::vector<HistoryEntry> find(const HistoryQuery& query);
  /// Visits the entries from that time on, the oldest first.
  void visit_since(WallTime since, const std::function<void(const HistoryEntry&)>& visit);
  /// Visits the time of each stream's first entry, those of an earlier stream of the same id left out.
  void visit_first_times(const std::function<void(long long stream_id, WallTime)>& visit);

 private:
  void count_rows();
  std::vector<HistoryEntry> latest_of_streams();
  void add(const JournalEntry& entry);
  bool extend_loop(const JournalEntry& end);
  void insert(const HistoryEntry& row);
  void remove(const HistoryEntry& row);
  void remove_excess(std::optional<long long> stream_id);
  void remove_aged(WallTime now);
  void close_run(const HistoryEntry& last, WallTime alive);
  std::uint64_t first_number_since(WallTime since);
  std::uint64_t max_number();
  std::optional<std::int64_t> read_state(std::string_view name);
  void set_state(std::string_view name, std::int64_t value);

  Sqlite sqlite_;
  HistoryLimits limits_;
  std::unordered_map<long long, std::size_t> rows_;  ///< by stream
  bool rows_counted_ = false;                        ///< false when `rows_` may differ from the file
  std::optional<WallTime> aged_removed_;             ///< when `remove_aged` last looked
  SqliteStatement insert_;
  SqliteStatement remove_;
  SqliteStatement latest_two_;
  SqliteStatement remove_oldest_;
  SqliteStatement set_state_;
  std::uint64_t reserved_;  ///< numbers below may have been given
};

}  // namespace weir
