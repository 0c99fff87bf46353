#pragma once

#include <vector>

namespace weir {

/// What a launch settles of one rendition of a stream's HLS output.
struct HlsRendition {
  long long max_bitrate = 0;  ///< bit/s that the encoders keep to, with the container's overhead; 0 when unknown
};

/// What a launch settles of a stream's HLS output.
struct HlsCycle {
  double segment_time = 0;          ///< seconds
  int list_size = 0;                ///< segments that viewers see
  bool has_fixed_segments = false;  ///< keyframes are forced on the borders of segments
  bool independent_segments = false;
  std::vector<HlsRendition> renditions = {};
};

/// Carries a stream's HLS output on from one cycle to the next. Neither call fails: what the system refuses is logged,
/// and a stream goes on the air without it.
class CyclePublisher {
 public:
  virtual ~CyclePublisher() = default;

  /// Called before the launch. Gives the number of each rendition's first segment.
  virtual std::vector<long long> begin_cycle(long long stream_id, const HlsCycle& cycle) = 0;
  /// Keeps what viewers still need of the stream's directory. Called at the end of a cycle, before the directory is
  /// emptied, and possibly again.
  virtual void end_cycle(long long stream_id) = 0;
};

}  // namespace weir
