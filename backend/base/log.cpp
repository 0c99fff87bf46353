#include "backend/base/log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "backend/base/mask_passwords.h"
#include "backend/base/repeat_limit.h"
#include "backend/base/time_text.h"
#include "backend/platform/utf8.h"

namespace weir {

namespace {

LogSink test_sink;
LogLevel min_level = LogLevel::info;
LogFormat format = LogFormat::text;
RepeatLimit repeat_limit;
std::unordered_map<std::uint64_t, LogLine> kept_back;  ///< the latest line of each key that is not written

spdlog::logger& logger() {
  static const auto instance = [] {
    auto created = std::make_shared<spdlog::logger>("weir", std::make_shared<spdlog::sinks::stderr_color_sink_st>());
    created->set_pattern(format == LogFormat::text ? "%Y-%m-%d %H:%M:%S.%e %^%-7l%$ %v" : "%v");
    created->set_level(spdlog::level::trace);
    return created;
  }();
  return *instance;
}

spdlog::level::level_enum to_spdlog(LogLevel level) {
  constexpr std::array levels{spdlog::level::debug, spdlog::level::info, spdlog::level::warn, spdlog::level::err};
  return levels[static_cast<std::size_t>(level)];
}

std::size_t character_length(char first) {
  const auto byte = static_cast<unsigned char>(first);
  return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// Control characters of ASCII and Latin-1, and Unicode's line ends and changes of direction.
bool is_control(std::string_view character) {
  if (character.size() == 1) return static_cast<unsigned char>(character[0]) < 0x20 || character[0] == 0x7F;
  return (character >= "\u0080" && character <= "\u009F") || (character >= "\u2028" && character <= "\u202E") ||
         (character >= "\u2066" && character <= "\u2069");
}

void append_visible(std::string& line, std::string_view character) {
  if (!is_control(character)) {
    line += character;
    return;
  }
  for (const char byte : character) line += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
}

// One line of valid UTF-8 without control characters: input must not be able to forge a log line or to
// send codes to the terminal. The lines of a traceback are joined.
std::string make_line(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  const std::string valid = to_valid_utf8(std::string(text));
  std::string line;
  line.reserve(valid.size());
  for (std::string_view rest = valid; !rest.empty();) {
    const std::string_view character = rest.substr(0, character_length(rest.front()));
    rest.remove_prefix(character.size());
    if (character == "\n") {
      line += " | ";
      rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    } else {
      append_visible(line, character);
    }
  }
  return line;
}

std::string to_json_line(const LogLine& line) {
  constexpr std::array levels{"debug", "info", "warning", "error"};
  nlohmann::ordered_json json{{"time", to_iso8601(std::chrono::system_clock::now())},
                              {"level", levels[static_cast<std::size_t>(line.level)]},
                              {"name", line.name},
                              {"text", line.text}};
  if (line.fields.stream) json["stream"] = *line.fields.stream;
  for (const auto& [key, value] : {std::pair{"label", &line.fields.label}, std::pair{"kind", &line.fields.kind},
                                   std::pair{"cause", &line.fields.cause}})
    if (!value->empty()) json[key] = *value;
  return json.dump();
}

// The priorities of syslog(3).
std::string to_journald_line(const LogLine& line) {
  constexpr std::array priorities{7, 6, 4, 3};
  return fmt::format("<{}>{}: {}", priorities[static_cast<std::size_t>(line.level)], line.name, line.text);
}

std::string to_text(const LogLine& line) {
  if (format == LogFormat::json) return to_json_line(line);
  if (format == LogFormat::journald) return to_journald_line(line);
  return fmt::format("{}: {}", line.name, line.text);
}

void write(const LogLine& line) { logger().log(to_spdlog(line.level), "{}", to_text(line)); }

std::uint64_t repeat_hash(const LogLine& line) {
  const std::hash<std::string> hash;
  if (!line.repeat_key.empty()) return hash(line.repeat_key);
  return hash(fmt::format("{} {}: {}", static_cast<int>(line.level), line.name, line.text));
}

}  // namespace

void log(LogLine line) {
  if (line.level < min_level) return;
  line.name = make_line(mask_passwords(line.name));
  line.text = make_line(mask_passwords(line.text));
  line.fields.label = make_line(mask_passwords(line.fields.label));
  if (test_sink) return test_sink(line.level, line.name, line.text);
  const std::uint64_t key = repeat_hash(line);
  if (line.level == LogLevel::debug || repeat_limit.allows(key, std::chrono::steady_clock::now())) {
    write(line);
  } else {
    kept_back[key] = std::move(line);
  }
}

void log(LogLevel level, std::string_view name, std::string_view text) {
  if (level >= min_level) log(LogLine{.level = level, .name = std::string(name), .text = std::string(text)});
}

void report_repeated_lines() {
  repeat_limit.collect(std::chrono::steady_clock::now(), [](std::uint64_t key, int count) {
    LogLine line = std::move(kept_back[key]);
    kept_back.erase(key);
    line.text += fmt::format(" ({} such lines since the last one)", count);
    write(line);
  });
}

void set_log_level(LogLevel level) { min_level = level; }

void set_log_format(LogFormat new_format) { format = new_format; }

bool is_journald_attached() {
  const char* stream = ::getenv("JOURNAL_STREAM");
  struct stat standard_error{};
  if (!stream || ::fstat(STDERR_FILENO, &standard_error) != 0) return false;
  return fmt::format("{}:{}", standard_error.st_dev, standard_error.st_ino) == stream;
}

void set_log_sink(LogSink sink) { test_sink = std::move(sink); }

}  // namespace weir
