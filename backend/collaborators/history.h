#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "backend/collaborators/journal.h"
#include "backend/platform/async.h"

namespace weir {

/// An entry of the history. The equal ends of a crash loop are one: it is the latest of them, its time on the air that
/// of all of them.
struct HistoryEntry {
  JournalEntry entry;
  long long count = 1;  ///< how many there were
  WallTime first = {};  ///< the time of the first of them
};

/// Which entries are asked for, newest first.
struct HistoryQuery {
  std::optional<long long> stream_id = {};
  bool since_added = false;                  ///< none of an earlier stream of the same id, which was deleted
  std::optional<std::uint64_t> before = {};  ///< entries with a lower number
  std::optional<std::uint64_t> after = {};   ///< entries with a higher number
  std::optional<WallTime> since = {};        ///< entries of this time or later
  std::vector<JournalKind> kinds = {};       ///< of one of them; empty: of any
  std::vector<Cause> causes = {};            ///< the same
  std::size_t limit = 100;
};

using CauseCounts = std::array<std::uint32_t, cause_count>;

/// What the record of a stream says of its past.
struct HistorySummary {
  CauseCounts restarts_last_hour = {};  ///< by cause; the grain is five minutes
  CauseCounts restarts_last_day = {};
  /// On the air in the last 24 hours, or since the stream was added if that is later; nothing for a new stream.
  std::optional<double> on_air_percent = {};
};

/// The history cannot be asked now; the message says why.
struct HistoryUnavailable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What the journal told, also before this run of the server.
class History {
 public:
  virtual ~History() = default;

  /// The newest entries of the query, those that were told just now included. Throws `HistoryUnavailable`.
  virtual Async<std::vector<HistoryEntry>> find(HistoryQuery query) = 0;
  /// Kept in memory.
  virtual HistorySummary summarize(long long stream_id) const = 0;
};

}  // namespace weir
