#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "backend/base/mask_passwords.h"

namespace weir {

enum class LogLevel { debug, info, warning, error };

/// Writes a line to the log, which is standard error: time, level, name, text. Passwords in URLs are masked and control
/// characters made visible, except for the line ends of a traceback.
void log(LogLevel level, std::string_view name, std::string_view text);

/// Lines below the level are dropped. "info" unless set.
void set_log_level(LogLevel level);

/// Receives every line in place of standard error, already masked; for tests. An empty function restores the default.
using LogSink = std::function<void(LogLevel, std::string_view name, std::string_view text)>;
void set_log_sink(LogSink sink);

}  // namespace weir
