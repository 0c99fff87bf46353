#pragma once

#include <string>
#include <utility>
#include <vector>

#include "backend/services/transcoder/settings.h"

namespace weir {

/// One input of a stream: where it is and how it is read.
struct InputSource {
  std::string url;     ///< as the document has it, to be shown
  std::string format;  ///< empty: found out by FFmpeg
  bool realtime = false;
  long long replays = 0;                                        ///< -1: without end
  std::vector<std::pair<std::string, std::string>> options;     ///< of protocol, format and decoder
  std::vector<std::pair<std::string, std::string>> adjustment;  ///< options that only the transcoder knows
};

/// Reads an input's member of the document. Throws `ValueError` with the reason.
InputSource read_input_source(const Settings& input);

/// What FFmpeg is to open: the URL when its protocol is one for inputs, and for anything else the local file of that
/// name, so that no text of a document can reach FFmpeg's other protocols. Throws `ValueError`.
std::string get_input_address(const std::string& url, const std::string& format);

/// The arguments that open the input, understood by the transcoder and by the probe.
std::vector<std::string> make_open_arguments(const InputSource& source);
/// Those that set the pace and position of the reading; the transcoder's, before the ones that open.
std::vector<std::string> make_pace_arguments(const InputSource& source);

/// Whether the media come at the pace of real time, and not as fast as they are read.
bool has_own_pace(const InputSource& source);

}  // namespace weir
