#pragma once

#include <string>
#include <vector>

#include "backend/services/transcoder/settings.h"

namespace weir {

/// The member "map" of "video", "audio" or "subtitle": which streams of the input are taken, as arguments of "-map".
/// A stream that the input does not have is left out. `type` is 'v', 'a' or 's'. Throws `ValueError`.
std::vector<std::string> read_stream_maps(const Settings& settings, char type);

/// The same without the mark that lets a stream be absent, as a filter graph names its input.
std::string read_video_input(const Settings& video);

}  // namespace weir
