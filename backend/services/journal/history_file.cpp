#include "backend/services/journal/history_file.h"

#include <fmt/core.h>

#include <filesystem>
#include <system_error>

namespace weir {

namespace fs = std::filesystem;

JournalDatabase& HistoryFile::database() {
  if (!database_) database_.emplace(path_, limits_);
  return *database_;
}

// A damaged file is found when it is read or written.
template <class Operation>
auto HistoryFile::with_database(Operation operation) {
  try {
    return operation(database());
  } catch (const SqliteError& failure) {
    if (!failure.is_damage()) throw;
    set_aside(failure.what());
  }
  return operation(database());
}

void HistoryFile::set_aside(const std::string& reason) {
  database_.reset();
  const std::string broken = path_ + ".broken";
  std::error_code failure;
  fs::rename(path_, broken, failure);
  if (failure) throw SqliteError(0, fmt::format("{}; it can't be renamed: {}", reason, failure.message()));
  // What it has not taken over yet goes with it.
  fs::remove(broken + "-wal", failure);
  fs::rename(path_ + "-wal", broken + "-wal", failure);
  fs::remove(path_ + "-shm", failure);
  notice_ = fmt::format("The history in {} can't be used ({}): it is set aside as {}, and a new one begins", path_,
                        reason, broken);
}

HistoryFile::Past HistoryFile::open(WallTime now) {
  return with_database([now](JournalDatabase& database) {
    database.close_open_runs();
    Past past{.next_number = database.next_number(), .figures = {}, .open_failures = database.open_failures()};
    database.reserve_numbers(past.next_number);
    database.visit_first_times([&](long long stream, WallTime time) { past.figures.begin(stream, time); });
    database.visit_since(now - std::chrono::hours(24),
                         [&](const HistoryEntry& row) { past.figures.add(row.entry, row.count, row.first); });
    return past;
  });
}

// The open one stays when that fails: perhaps it can still be read.
void HistoryFile::reopen() {
  JournalDatabase fresh(path_, limits_);
  database_.reset();
  database_.emplace(std::move(fresh));
}

void HistoryFile::write(std::span<const JournalEntry> entries, WallTime now, std::uint64_t next_number) {
  with_database([&](JournalDatabase& database) {
    database.reserve_numbers(next_number);
    database.write(entries, now);
  });
}

std::vector<HistoryEntry> HistoryFile::find(const HistoryQuery& query) {
  return with_database([&](JournalDatabase& database) { return database.find(query); });
}

}  // namespace weir
