#pragma once

#include <string>
#include <utility>
#include <vector>

#include "backend/services/transcoder/encoding/encoding.h"
#include "backend/services/transcoder/settings.h"

namespace weir {

using OptionList = std::vector<std::pair<std::string, std::string>>;

/// One receiver of the encode: a muxer and its address. An HLS output has one for each rendition.
struct OutputTarget {
  int output = 0;  ///< the index in the document
  std::string protocol;
  std::string format;
  std::string address;
  OptionList options;  ///< of muxer and protocol
  std::size_t rendition = 0;
  TagFamily family = TagFamily::none;
  bool carries_subtitles = false;
  bool audio_only = false;  ///< carries the first audio stream and nothing else
  /// Behind a queue also where it is the only one: the transcoder neither waits for its receiver nor ends with it.
  bool queued = false;
  /// Opened again after a failure. Not for recordings: opening one again would overwrite it.
  bool reopens = true;
  std::string recording;  ///< path of the file that a "file" output writes, empty for the others
};

/// Reads a "rtmp", "rtsp", "udp", "rtp", "tcp" or "file" output. Throws `ValueError` with the reason; an "hls" output
/// is read by `read_hls_output`.
OutputTarget read_output_target(const Settings& output);

/// Reads an "http" output, which is sent to the unix socket of that path; `mapping` is what `output` reads. Throws
/// `ValueError` with the reason.
OutputTarget read_http_target(const Settings& output, const Value& mapping, const std::string& socket);

}  // namespace weir
