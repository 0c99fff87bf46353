#include "backend/base/log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <string>

#include "backend/base/mask_passwords.h"
#include "backend/platform/utf8.h"

namespace weir {

namespace {

LogSink test_sink;
LogLevel min_level = LogLevel::info;

spdlog::logger& logger() {
  static const auto instance = [] {
    auto created = std::make_shared<spdlog::logger>("weir", std::make_shared<spdlog::sinks::stderr_color_sink_st>());
    created->set_pattern("%Y-%m-%d %H:%M:%S.%e %^%-7l%$ %v");
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

}  // namespace

void log(LogLevel level, std::string_view name, std::string_view text) {
  if (level < min_level) return;
  const std::string visible_name = make_line(mask_passwords(name));
  const std::string line = make_line(mask_passwords(text));
  if (test_sink) return test_sink(level, visible_name, line);
  logger().log(to_spdlog(level), "{}: {}", visible_name, line);
}

void set_log_level(LogLevel level) { min_level = level; }

void set_log_sink(LogSink sink) { test_sink = std::move(sink); }

}  // namespace weir
