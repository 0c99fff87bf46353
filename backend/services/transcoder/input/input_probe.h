#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/output_file.h"

namespace weir {

/// Asks the probe program what an input holds, for at most `timeout`. `open_arguments` are those of
/// `make_open_arguments`. Gives {"format", "duration" (seconds), "bitrate" (kbit/s), "streams": [...]}, the unknown
/// being null, or {"error": reason}. A kill of the waiting task leaves no process behind. A `log` gets what the program
/// prints, in enough detail for `shows_data`.
Async<Value> probe_input(std::vector<std::string> open_arguments, std::chrono::nanoseconds timeout,
                         std::shared_ptr<const OutputFile> log = nullptr);

/// Bytes of a probe's log.
constexpr std::size_t max_probe_log = 1 << 20;

/// Whether the log of a probe says that the input sends: FFmpeg has recognised a format in what came.
bool shows_data(std::string_view log);

/// What a URL holds, for at most `Config::PROBE_TIMEOUT` seconds.
Async<Value> probe_url(std::string url);

/// What an input of a document holds: a mapping with "url", "format", "options" … It is asked for its "probe_timeout",
/// at most a minute.
Async<Value> probe_input_member(Value input);

}  // namespace weir
