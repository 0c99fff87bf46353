#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "backend/base/mask_passwords.h"

namespace weir {

enum class LogLevel { debug, info, warning, error };

/// How lines are written: for people, one JSON object each, or for the systemd journal, which knows the time itself and
/// reads the level from a prefix (sd-daemon(3)).
enum class LogFormat { text, json, journald };

/// What a line is about, for programs that read the log.
struct LogFields {
  std::optional<long long> stream = {};
  std::string label = {};  ///< of the stream
  std::string kind = {};   ///< of the event
  std::string cause = {};  ///< of the event
};

struct LogLine {
  LogLevel level = LogLevel::info;
  std::string name;  ///< who says it
  std::string text;
  LogFields fields = {};        ///< shown by `LogFormat::json`
  std::string repeat_key = {};  ///< lines of one key repeat each other; empty: those of the same level, name and text
};

/// Writes one line to the log, which is standard error: time, level, name, text. Passwords in URLs are masked; the line
/// is valid UTF-8 without control characters: line ends become " | ". Of lines that repeat each other, debug lines
/// excepted, the first five are written; see `report_repeated_lines`. On the loop's thread only.
void log(LogLine line);
void log(LogLevel level, std::string_view name, std::string_view text);

/// Says how often lines were repeated that were not written, once a minute for each. To be called every few seconds.
void report_repeated_lines();

/// Lines below the level are dropped. "info" unless set.
void set_log_level(LogLevel level);

/// "text" unless set.
void set_log_format(LogFormat format);
/// Whether systemd connected standard error to its journal (JOURNAL_STREAM).
bool is_journald_attached();

/// Receives the name and text of every line in place of standard error, as they would be written; for tests. An empty
/// function restores the default.
using LogSink = std::function<void(LogLevel, std::string_view name, std::string_view text)>;
void set_log_sink(LogSink sink);

}  // namespace weir
