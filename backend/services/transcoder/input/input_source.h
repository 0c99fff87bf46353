#pragma once

#include <chrono>
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
  std::chrono::nanoseconds probe_timeout{0};                    ///< after which a probe of it gives up
  std::vector<std::pair<std::string, std::string>> options;     ///< of protocol, format and decoder
  std::vector<std::pair<std::string, std::string>> adjustment;  ///< options that only the transcoder knows
};

/// Reads an input's member of the document. Throws `ValueError` with the reason.
InputSource read_input_source(const Settings& input);

/// Of options that an input has from `first`, the document's input 0, drops those of a protocol if its own is another
/// one: FFmpeg would refuse the input with them.
void drop_foreign_options(const Settings& first, InputSource& source);

/// What FFmpeg is to open: the URL when its protocol is one for inputs, and for anything else the local file of that
/// name, so that no text of a document can reach FFmpeg's other protocols. Throws `ValueError`.
std::string get_input_address(const std::string& url, const std::string& format);

/// The protocol of a network input, in lower case; empty for a file or a device.
std::string get_network_scheme(const InputSource& source);

/// The arguments that open the input, understood by the transcoder and by the probe.
std::vector<std::string> make_open_arguments(const InputSource& source);
/// Those of a probe that only asks whether the input can be described: it listens for 2 s where FFmpeg takes 5.
std::vector<std::string> make_probe_arguments(const InputSource& source);
/// Those that set the pace and position of the reading; the transcoder's, before the ones that open.
std::vector<std::string> make_pace_arguments(const InputSource& source);

/// What is known of a network input that is an MPEG-TS: FFmpeg needs not wait for programs that come up later, and
/// opens it as soon as every stream of its tables is described.
void expect_transport_stream(InputSource& source);

/// Whether the media come at the pace of real time, and not as fast as they are read.
bool has_own_pace(const InputSource& source);

}  // namespace weir
