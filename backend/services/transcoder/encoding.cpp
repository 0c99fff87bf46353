#include "backend/services/transcoder/encoding.h"

#include "backend/platform/failure.h"
#include "backend/services/transcoder/audio_arguments.h"
#include "backend/services/transcoder/stream_map.h"
#include "backend/services/transcoder/video_arguments.h"

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

}  // namespace

Encoding make_encoding(const Settings& document, double segment_time, bool wants_subtitles) {
  Encoding encoding;
  const VideoArguments video = make_video_arguments(document.section("video"), segment_time);
  const AudioArguments audio = make_audio_arguments(document.section("audio"), video.audio_bitrates);
  if (video.streams == 0 && audio.streams == 0) throw ValueError("Neither picture nor sound: both codecs are \"none\"");
  encoding.device_arguments = video.device_arguments;
  encoding.arguments = video.arguments;
  encoding.arguments.insert(encoding.arguments.end(), audio.arguments.begin(), audio.arguments.end());
  if (wants_subtitles) append_subtitles(document.section("subtitle"), encoding);
  for (std::size_t i = 0; i < video.audio_bitrates.size(); ++i) {
    auto& streams = encoding.renditions.emplace_back();
    if (video.streams > 0) streams.push_back({"v", static_cast<int>(i), 0});
    for (int index : audio.renditions[i]) streams.push_back({"a", index, 0});
  }
  return encoding;
}

}  // namespace weir
