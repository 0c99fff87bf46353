#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "backend/base/mask_passwords.h"

namespace weir {

enum class LogLevel { debug, info, warning, error };

/// Writes one line to the log, which is standard error: time, level, name, text. Passwords in URLs of both are
/// masked; the line is valid UTF-8 without control characters: line ends become " | ".
void log(LogLevel level, std::string_view name, std::string_view text);

/// Lines below the level are dropped. "info" unless set.
void set_log_level(LogLevel level);

/// Receives the name and text of every line in place of standard error, as they would be written; for tests. An empty
/// function restores the default.
using LogSink = std::function<void(LogLevel, std::string_view name, std::string_view text)>;
void set_log_sink(LogSink sink);

}  // namespace weir
