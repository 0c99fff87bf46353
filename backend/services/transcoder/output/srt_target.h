#pragma once

#include "backend/services/transcoder/output/output_target.h"

namespace weir {

/// Reads an "srt" output; `mapping` is what `output` reads. Throws `ValueError` with the reason.
OutputTarget read_srt_target(const Settings& output, const Value& mapping);

}  // namespace weir
