#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backend/collaborators/cycle_publisher.h"
#include "backend/web/publishing/hls_window.h"
#include "backend/web/publishing/media_playlist.h"

namespace weir {

/// The HLS windows of all streams. Numbers of segments go on from cycle to cycle, and what viewers saw of the cycles
/// before is kept in `Config::HLS_DIRECTORY`/windows/ID, out of the transcoder's directory: segments and playlists.
/// From windows/ID.json the next server goes on. What a running cycle adds is read from its directory when somebody
/// asks; until then it costs nothing.
class HlsWindows : public CyclePublisher {
 public:
  /// Keeps what an earlier server left. Called before a stream empties its directory.
  void adopt();

  std::vector<long long> begin_cycle(long long stream_id, const HlsCycle& cycle) override;
  void end_cycle(long long stream_id) override;

  /// Null for a stream that never had HLS output.
  const HlsWindow* find(long long stream_id) const;
  /// What a rendition's playlist shows now, the target duration included. Empty when there is no segment, nor
  /// rendition.
  MediaPlaylist show(long long stream_id, std::size_t rendition);
  /// The path of a published file of the stream, in the transcoder's directory or among the kept ones.
  static std::string find_file(long long stream_id, const std::string& name);

  enum class StreamState { active, stopped, deleted };
  /// Removes what nobody needs any more: segments that have left the playlists of a running cycle, and those of a
  /// stream that ended `end_notice` ago.
  void sweep(const std::function<StreamState(long long stream_id)>& state_of);
  /// Notes whether the stream is active. False when it has not been for more than `end_notice`: nothing of it is
  /// published any more.
  bool is_published(long long stream_id, bool active);

  /// How long the playlists of a stream that has ended say so.
  static constexpr std::chrono::seconds end_notice{30};

 private:
  void adopt_stream(long long stream_id);
  std::vector<HlsSegment> segments(long long stream_id, const HlsWindow& window, std::size_t rendition) const;
  void keep(long long stream_id, HlsWindow& window);
  static void keep_rendition(long long stream_id, HlsWindow& window, std::size_t index, std::vector<HlsSegment> all);
  bool has_moved_on(long long stream_id, const HlsWindow& window) const;
  static void drop_kept(long long stream_id, HlsWindow& window);

  std::map<long long, HlsWindow> windows_;
};

}  // namespace weir
