#pragma once

#include <unordered_map>
#include <vector>

#include "backend/collaborators/history.h"

namespace weir {

/// Sums of the last 24 hours, per stream: restarts by cause in buckets of five minutes, and when it was on the air.
/// Takes some hundred bytes for a stream that runs, and at most 20 KB for one that never stops restarting.
class HistoryFigures {
 public:
  /// Adds an entry, later than those before. `count`, `first`: see `HistoryEntry`.
  void add(const JournalEntry& entry, long long count, WallTime first);
  /// Nothing is known of the stream before that time.
  void begin(long long stream_id, WallTime time);
  /// Puts those of earlier entries before these.
  void prepend(HistoryFigures earlier);

  HistorySummary summarize(long long stream_id, WallTime now) const;
  /// Whether the server works at a stream: tries to bring it on the air, or keeps it there.
  bool is_any_active() const noexcept { return active_ > 0; }

 private:
  /// On the air for `seconds` between two times: one run, or several that began within five minutes.
  struct Runs {
    WallTime begin;
    WallTime end;
    double seconds;
  };
  struct Restarts {
    long long bucket;
    Cause cause;
    std::uint32_t count;
  };
  struct Figures {
    std::optional<WallTime> known_since;
    std::optional<WallTime> on_air_since;
    bool active = false;
    std::vector<Runs> runs;
    std::vector<Restarts> restarts;
  };

  static void add_restarts(Figures& figures, const JournalEntry& end, long long count, WallTime first);
  static void count_restarts(Figures& figures, long long bucket, Cause cause, long long count);
  void add_end(Figures& figures, const JournalEntry& end, long long count, WallTime first);
  void set_active(Figures& figures, bool active);

  std::unordered_map<long long, Figures> streams_;
  std::size_t active_ = 0;  ///< number of active streams
};

}  // namespace weir
