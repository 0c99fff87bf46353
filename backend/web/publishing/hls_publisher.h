#pragma once

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/semaphore.h"
#include "backend/web/publishing/hls_windows.h"
#include "backend/web/publishing/master_playlist.h"

namespace weir {

/// Says what a media file holds, as `GET /api/probe` answers it. Throws an ordinary failure when it can't be read.
using DescribeFunction = std::function<Async<Value>(std::string path)>;

/// Makes the playlists that viewers get of the streams' windows: once per change, and only when somebody asks.
class HlsPublisher {
 public:
  using Text = std::shared_ptr<const std::string>;

  /// The windows outlive the publisher.
  HlsPublisher(HlsWindows& windows, DescribeFunction describe) : windows_(windows), describe_(std::move(describe)) {}

  /// The media playlist of a rendition, null while it has no segment.
  Text media_playlist(long long stream_id, std::size_t rendition);
  /// The master playlist, null until every rendition has a segment. The first one of a cycle waits for the description
  /// of a segment.
  Async<Text> master_playlist(long long stream_id);
  /// Forgets what nobody has asked for lately.
  void forget_unused();

 private:
  /// Identifies the content of a file that is replaced by renaming.
  struct Stamp {
    ino_t file = 0;
    long long changed = 0;
    bool operator==(const Stamp&) const = default;
  };
  struct Media {
    Stamp stamp;
    unsigned revision = 0;
    Text text;
    std::vector<HlsSegment> shown;
    long long described_cycle = -1;  ///< the discontinuity sequence number of the segment that `media` describes
    VariantMedia media;
    long long peak = 0;  ///< bit/s, the highest since the cycle's settings are known
  };
  struct Playlists {
    std::vector<Media> media;
    std::vector<Text> described;  ///< the media playlists that `master` was made of
    Text master;
    TimePoint asked_at;
  };

  static Stamp stamp_of(long long stream_id, std::size_t rendition);
  Media& update(long long stream_id, std::size_t rendition);
  bool is_described(long long stream_id, std::size_t rendition);
  Async<> describe(long long stream_id, std::size_t rendition);
  Text make_master(long long stream_id);
  Async<VariantMedia> describe_segment(std::string path);
  Variant make_variant(long long stream_id, const HlsWindow& window, std::size_t rendition);

  HlsWindows& windows_;
  DescribeFunction describe_;
  Semaphore describing_{1};
  std::unordered_map<long long, Playlists> playlists_;
};

}  // namespace weir
