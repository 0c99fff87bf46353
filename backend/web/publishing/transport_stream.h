#pragma once

#include <string>
#include <unordered_map>

#include "backend/web/publishing/live_format.h"
#include "backend/web/publishing/ts_table.h"

namespace weir {

/// An MPEG transport stream of one program over all runs of a transcoder: the continuity counters rise on, and where a
/// run begins the discontinuity is marked, as its clock begins anew. Viewers begin with the tables and a keyframe;
/// without video, with the tables and any unit.
class TransportStream : public LiveFormat {
 public:
  void begin_run() override;
  void add(std::string_view bytes, LiveChunk& chunk) override;

 private:
  /// One elementary stream.
  struct Stream {
    int run = 0;          ///< the run that its latest packet belongs to
    int shift = 0;        ///< of the run's counters
    int continuity = 0;   ///< of the latest packet, as viewers got it
    bool clocked = true;  ///< the run's first clock has passed
  };

  void add_packet(TsPacket packet, LiveChunk& chunk);
  bool add_table(const TsPacket& packet, LiveChunk& chunk);
  void join_runs(TsPacket& packet, LiveChunk& chunk);
  bool is_start(const TsPacket& packet) const;

  std::string unread_;
  int run_ = 0;
  TsTable association_{0};
  TsTable map_{TsPacket::null_pid};
  TsProgram program_;
  std::unordered_map<int, Stream> streams_;
};

}  // namespace weir
