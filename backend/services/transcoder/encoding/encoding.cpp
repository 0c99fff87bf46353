#include "backend/services/transcoder/encoding/encoding.h"

#include <algorithm>

#include "backend/platform/failure.h"
#include "backend/services/transcoder/encoding/audio_arguments.h"
#include "backend/services/transcoder/encoding/stream_map.h"
#include "backend/services/transcoder/encoding/video_arguments.h"

namespace weir {

namespace {

void append_subtitles(const Settings& subtitle, Encoding& encoding) {
  const std::string codec = subtitle.word("codec", "none");
  if (codec == "none") return;
  for (const std::string& map : read_stream_maps(subtitle, 's')) {
    encoding.arguments.insert(encoding.arguments.end(), {"-map", map});
  }
  encoding.arguments.insert(encoding.arguments.end(), {"-c:s", codec});
  encoding.has_subtitles = true;
}

/// The tags of H.264 and of AAC in each family's container.
std::vector<std::string> get_tags(const std::vector<TagFamily>& families, const char* flv, const char* mp4) {
  std::vector<std::string> tags;
  for (TagFamily family : families) tags.emplace_back(family == TagFamily::flv ? flv : mp4);
  return tags;
}

/// The renditions are the last of the video streams, behind the tagged copies.
void assign_streams(const VideoArguments& video, const AudioArguments& audio, Encoding& encoding) {
  const int count = static_cast<int>(audio.renditions.size());
  for (int i = 0; i < count; ++i) {
    auto& streams = encoding.renditions.emplace_back();
    if (video.streams > 0) streams.push_back({"v", video.streams - count + i, 0});
    const auto rendition = static_cast<std::size_t>(i);
    for (int index : audio.renditions[rendition]) streams.push_back({"a", index, 0});
    const long long video_limit = video.streams > 0 ? video.max_bitrates[rendition] : 0;
    const bool is_known = (video.streams == 0 || video_limit > 0) && !encoding.audio_copied;
    encoding.max_bitrates.push_back(is_known ? video_limit + audio.bitrates[rendition] : 0);
  }
}

}  // namespace

std::vector<FFmpegStreamSpecifier> Encoding::select(std::size_t rendition, TagFamily family) const {
  const auto found = std::ranges::find(families, family);
  const int copy = static_cast<int>(found - families.begin());
  std::vector<FFmpegStreamSpecifier> selected;
  bool has_audio = false;
  for (FFmpegStreamSpecifier stream : renditions.at(rendition)) {
    const bool audio = stream.stream_type == "a";
    const bool copied = found != families.end() && (audio ? audio_copied : video_copied);
    // FLV carries one audio stream, and there is one copy only.
    if (audio && has_audio && (copied || family == TagFamily::flv)) continue;
    if (copied) stream.stream_index = copy;
    has_audio = has_audio || audio;
    selected.push_back(stream);
  }
  return selected;
}

Encoding make_encoding(const Settings& document, const EncodingDemands& demands) {
  Encoding encoding;
  const Settings video_settings = document.section("video");
  const Settings audio_settings = document.section("audio");
  encoding.families = demands.families;
  encoding.video_copied = video_settings.word("codec") == "copy";
  encoding.audio_copied = audio_settings.word("codec") == "copy";
  const VideoArguments video =
      make_video_arguments(video_settings, demands.segment_time, get_tags(demands.families, "7", "avc1"));
  const AudioArguments audio =
      make_audio_arguments(audio_settings, video.audio_bitrates, get_tags(demands.families, "10", "mp4a"));
  if (video.streams == 0 && audio.streams == 0)
    throw ValueError("Nothing to encode: video and audio are both \"none\"");
  encoding.device_arguments = video.device_arguments;
  encoding.arguments = video.arguments;
  encoding.arguments.insert(encoding.arguments.end(), audio.arguments.begin(), audio.arguments.end());
  if (demands.wants_subtitles) append_subtitles(document.section("subtitle"), encoding);
  encoding.has_video = video.streams > 0;
  assign_streams(video, audio, encoding);
  return encoding;
}

}  // namespace weir
