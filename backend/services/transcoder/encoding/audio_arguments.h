#pragma once

#include <string>
#include <vector>

#include "backend/services/transcoder/settings.h"

namespace weir {

struct AudioArguments {
  int streams = 0;
  std::vector<std::string> arguments;
  std::vector<std::vector<int>> renditions;  ///< per rendition, its audio streams
  std::vector<long long> bitrates;           ///< per rendition, of all its audio in kbit/s; 0 when it is copied
};

/// The audio of the encode from "audio". `rendition_bitrates` has the bit rate that each rendition asks for, 0 for that
/// of "audio"; renditions with equal bit rates share one encode. `copy_tags`: the first copied audio stream is mapped
/// once more for each, ahead, with this codec tag. Throws `ValueError`.
AudioArguments make_audio_arguments(const Settings& audio, const std::vector<long long>& rendition_bitrates,
                                    const std::vector<std::string>& copy_tags);

}  // namespace weir
