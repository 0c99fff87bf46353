#include "backend/base/log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <array>

namespace weir {

namespace {

LogSink test_sink;
LogLevel lowest = LogLevel::info;

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

// What comes from outside must not be able to fake a log line of its own or to steer the terminal.
std::string make_visible(std::string_view text) {
  std::string visible;
  visible.reserve(text.size());
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '\n') {
      visible += "\n    ";
    } else if (code < 0x20 || code == 0x7F) {
      visible += fmt::format("\\x{:02x}", code);
    } else {
      visible += c;
    }
  }
  return visible;
}

}  // namespace

void log(LogLevel level, std::string_view name, std::string_view text) {
  if (level < lowest) return;
  while (text.ends_with('\n')) text.remove_suffix(1);
  const std::string masked = mask_passwords(text);
  if (test_sink) return test_sink(level, name, masked);
  logger().log(to_spdlog(level), "{}: {}", make_visible(name), make_visible(masked));
}

void set_log_level(LogLevel level) { lowest = level; }

void set_log_sink(LogSink sink) { test_sink = std::move(sink); }

}  // namespace weir
