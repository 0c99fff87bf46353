#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/collaborators/cycle_publisher.h"
#include "backend/platform/clock.h"
#include "backend/web/publishing/media_playlist.h"

namespace weir {

/// A stream's HLS output over its cycles.
struct HlsWindow {
  struct Rendition {
    std::vector<HlsSegment> kept;  ///< of the cycles before; what viewers may still fetch, the oldest first
    long long first_number = 0;    ///< of the cycle; between two cycles, of the next one
    long long first_shown = 0;     ///< the oldest segment that a playlist may still show: none comes back
    long long last_shown = 0;      ///< the newest segment that a viewer was told of
  };

  HlsCycle cycle;
  bool has_file = false;        ///< something of it was saved
  bool is_running = false;      ///< a cycle has begun and not ended
  long long discontinuity = 0;  ///< the discontinuity sequence number of the cycle
  int target_duration = 0;      ///< seconds; 0 until a segment is known
  std::vector<Rendition> renditions;
  std::optional<TimePoint> ended_at;  ///< when the stream was first seen stopped
  unsigned revision = 0;              ///< grows when anything here changes but what was shown

  /// Whether a rendition has segments of cycles before.
  bool has_kept() const;
};

/// The target duration that these segments ask for. `current` stays if it can: a playlist must not change it. A segment
/// that is longer raises it. For copied video there is room for groups of pictures that the first segments don't show.
int choose_target_duration(int current, const HlsCycle& cycle, const std::vector<HlsSegment>& segments);

/// What survives of a window in its file: all but the segments, which stand in the playlists beside it.
std::string format_window(const HlsWindow& window);
/// Throws `ValueError` for any other text.
HlsWindow parse_window(const std::string& text);

}  // namespace weir
