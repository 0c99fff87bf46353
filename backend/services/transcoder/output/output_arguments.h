#pragma once

#include <string>
#include <vector>

#include "backend/services/transcoder/encoding/encoding.h"
#include "backend/services/transcoder/output/output_target.h"

namespace weir {

/// The arguments that write the encode to its targets: plainly to a single one that takes all streams, else through the
/// tee muxer. `paced`: the input comes at the pace of real time, so that whatever waits may lose packets; else a slow
/// disk sets the pace, and only network receivers lose theirs.
std::vector<std::string> make_output_arguments(const std::vector<OutputTarget>& targets, const Encoding& encoding,
                                               bool paced);

}  // namespace weir
