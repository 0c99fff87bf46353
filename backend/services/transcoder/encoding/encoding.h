#pragma once

#include <string>
#include <vector>

#include "backend/collaborators/ffmpeg.h"
#include "backend/services/transcoder/settings.h"

namespace weir {

/// Containers that name codecs each in its own way. Behind the tee muxer a copied stream keeps the codec tag of its
/// source, which these refuse or write down as it is: for them it is mapped once more, with their tag.
enum class TagFamily { none, flv, mp4 };

/// The encode that all outputs of a stream share, as arguments of the transcoder.
struct Encoding {
  std::vector<std::string> device_arguments;  ///< before the input: hardware decoding and devices
  std::vector<std::string> arguments;         ///< after the input: maps, filters and codecs
  /// Per rendition, the streams of the transcoder's output that belong to it. At least one rendition.
  std::vector<std::vector<FFmpegStreamSpecifier>> renditions;
  std::vector<long long> max_bitrates;  ///< per rendition, in kbit/s; 0 when unknown
  bool has_subtitles = false;
  bool has_video = false;
  bool video_copied = false;
  bool audio_copied = false;
  std::vector<TagFamily> families;  ///< for which copies of their own are there, the first streams of their type

  /// The streams for an output of the family that carries the rendition.
  std::vector<FFmpegStreamSpecifier> select(std::size_t rendition, TagFamily family) const;
};

/// What the outputs ask of the encode.
struct EncodingDemands {
  double segment_time = 0;          ///< seconds of an HLS segment, on whose borders keyframes have to lie; 0: none
  bool wants_subtitles = false;     ///< some output can carry them
  std::vector<TagFamily> families;  ///< of the outputs behind a tee, each once
};

/// Reads "video", "audio" and "subtitle" of the document. Throws `ValueError` with the reason when they make no encode.
Encoding make_encoding(const Settings& document, const EncodingDemands& demands);

}  // namespace weir
