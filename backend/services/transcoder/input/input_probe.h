#pragma once

#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"

namespace weir {

/// Asks the probe program what an input holds, for at most `Config::PROBE_TIMEOUT` seconds. `open_arguments` are those
/// of `make_open_arguments`. Gives {"format", "duration" (seconds), "bitrate" (kbit/s), "streams": [...]}, the unknown
/// being null, or {"error": reason}. A kill of the waiting task leaves no process behind.
Async<Value> probe_input(std::vector<std::string> open_arguments);

/// The same for a URL alone.
Async<Value> probe_url(std::string url);

}  // namespace weir
