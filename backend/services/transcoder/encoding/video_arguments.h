#pragma once

#include <string>
#include <vector>

#include "backend/services/transcoder/settings.h"

namespace weir {

/// The first HLS segment of a launch ends at the first keyframe after it, in seconds: viewers wait for it.
inline constexpr double first_segment_seconds = 1;

struct VideoArguments {
  int streams = 0;                            ///< the tagged copies, then one per rendition; or none at all
  std::vector<std::string> device_arguments;  ///< before the input
  std::vector<std::string> arguments;         ///< after the input
  std::vector<long long> audio_bitrates;      ///< per rendition, of its audio in kbit/s; 0: that of "audio"
  std::vector<long long> max_bitrates;        ///< per rendition, of its video in kbit/s; 0 when unknown
};

/// The video of the encode from "video". A ladder is decoded and cleaned once, then scaled and encoded per rendition.
/// `segment_time`: seconds of an HLS segment, 0 when there is none. `copy_tags`: copied video is mapped once more
/// for each, ahead, with this codec tag. Throws `ValueError`.
VideoArguments make_video_arguments(const Settings& video, double segment_time,
                                    const std::vector<std::string>& copy_tags);

/// Seconds between keyframes: about `gop`, so that a whole number of them fits a segment.
double get_keyframe_interval(double gop, double segment_time);

/// The default bit rate for a height in kbit/s; 0 is the input's height.
long long get_default_bitrate(long long height);

}  // namespace weir
