#pragma once

#include <string>
#include <vector>

#include "backend/collaborators/ffmpeg.h"
#include "backend/services/transcoder/settings.h"

namespace weir {

/// The encode that all outputs of a stream share, as arguments of the transcoder.
struct Encoding {
  std::vector<std::string> device_arguments;  ///< before the input: hardware decoding and devices
  std::vector<std::string> arguments;         ///< after the input: maps, filters and codecs
  /// Per rendition, the streams of the transcoder's output that belong to it. At least one rendition.
  std::vector<std::vector<FFmpegStreamSpecifier>> renditions;
  bool has_subtitles = false;
};

/// Reads "video", "audio" and "subtitle" of the document. `segment_time`: seconds of an HLS segment, on whose borders
/// keyframes have to lie, 0 when there is none. `wants_subtitles`: some output can carry them. Throws `ValueError` with
/// the reason when the settings make no encode.
Encoding make_encoding(const Settings& document, double segment_time, bool wants_subtitles);

}  // namespace weir
