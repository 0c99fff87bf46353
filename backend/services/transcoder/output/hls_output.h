#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/services/transcoder/output/output_target.h"
#include "backend/services/transcoder/settings.h"

namespace weir {

/// The settings of a stream's HLS output.
struct HlsOutput {
  std::string playlist_name;
  double segment_time = 0;  ///< seconds
  int list_size = 0;        ///< segments that a variant's playlist lists
};

/// Throws `ValueError` with the reason.
HlsOutput read_hls_output(const Settings& output);

/// One target for each number in `first_segments`: "playlist_N.m3u8" and "playlist_N_SEQ.ts" in `directory`, SEQ
/// beginning at that number. `listed` is the number of segments that the playlists list. The transcoder never deletes
/// one.
std::vector<OutputTarget> make_hls_targets(const HlsOutput& hls, const std::string& directory, int listed,
                                           const std::vector<long long>& first_segments);

/// The number of segments that a transcoder's playlist lists: those that viewers see, and those that a viewer may still
/// fetch who saw them. After a launch segments are short, and the first ones were seen beside the long ones of the run
/// before: they are owed for as long as those last. More where nothing forces keyframes.
int count_listed_segments(const HlsOutput& hls, const Encoding& encoding);

/// The name under which the master playlist is to be written; nothing when the only variant's playlist has that name.
/// Throws `ValueError` when it is the name of one of several variants.
std::optional<std::string> get_master_playlist(const HlsOutput& hls, std::size_t renditions);

}  // namespace weir
