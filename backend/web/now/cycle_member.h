#pragma once

#include <functional>
#include <string>
#include <unordered_map>

#include "backend/collaborators/journal.h"
#include "backend/web/stream_records.h"

namespace weir {

/// The member "cycle" of a stream's record: what the stream is doing, since when, and how the last cycle ended.
class CycleMember final : public JournalReader {
 public:
  /// Says whether a transcoder that was launched and makes no progress waits for its peer.
  using WaitsFunction = std::function<bool(const Stream&)>;
  void on_waits(WaitsFunction waits) { waits_ = std::move(waits); }

  /// The member outlives the records that it is added to.
  RecordMember make();

  void read(const JournalEntry& entry) override;
  void append(std::string& json, const Stream& stream);

 private:
  struct Kept {
    JournalKind kind = JournalKind::stopped;  ///< of the latest entry about the stream's state
    WallTime time;
    double retry_seconds = 0;
    std::string end;                   ///< the last end as JSON
    std::optional<WallTime> end_time;  ///< of which `end` was made
  };

  std::string_view state_of(const Stream& stream, const Kept* kept) const;
  static const std::string& last_end(const Stream& stream, Kept& kept);

  std::unordered_map<long long, Kept> kept_;  ///< by stream id
  WaitsFunction waits_;
};

}  // namespace weir
