#include "backend/services/configuration/setting_table.h"

#include <arpa/inet.h>
#include <fmt/core.h>

#include <cmath>
#include <map>

#include "backend/base/numbers.h"

namespace weir {

namespace {

std::string not_empty(const std::string& value) {
  if (value.empty()) throw std::invalid_argument("a text that is not empty");
  return value;
}

int to_port(const std::string& value) {
  const auto port = parse_integer(value);
  if (!port || *port < 0 || *port > 65535) throw std::invalid_argument("a number from 0 to 65535");
  return static_cast<int>(*port);
}

double to_seconds(const std::string& value) {
  const auto seconds = parse_float(value);
  if (!seconds || !std::isfinite(*seconds) || *seconds <= 0) throw std::invalid_argument("a number of seconds above 0");
  return *seconds;
}

bool to_switch(const std::string& value) {
  if (value == "true" || value == "1" || value == "yes" || value == "on") return true;
  if (value == "false" || value == "0" || value == "no" || value == "off") return false;
  throw std::invalid_argument("true or false");
}

LogLevel to_log_level(const std::string& value) {
  static const std::map<std::string, LogLevel> levels{
      {"debug", LogLevel::debug}, {"info", LogLevel::info}, {"warning", LogLevel::warning}, {"error", LogLevel::error}};
  const auto level = levels.find(value);
  if (level == levels.end()) throw std::invalid_argument("debug, info, warning or error");
  return level->second;
}

bool is_loopback(const std::string& address) {
  in_addr v4{};
  in6_addr v6{};
  if (::inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  return ::inet_pton(AF_INET6, address.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

// Whoever reaches the server controls it: nothing asks who they are.
std::string to_bind_address(const std::string& value) {
  const std::string address = value == "localhost" ? "127.0.0.1" : value;
  if (!is_loopback(address))
    throw std::invalid_argument(
        "a loopback address (127.0.0.1 or ::1), as the server has no authentication and whoever reaches it controls "
        "it");
  return address;
}

}  // namespace

std::string Setting::environment_name() const {
  std::string result = "WEIR_";
  for (const char c : name) result += c == '-' ? '_' : static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  return result;
}

const std::vector<Setting>& setting_table() {
  using S = ServerSettings;
  using Text = std::string;
  static const std::vector<Setting> table{
      {"data", "DIR", "data directory: streams/ hls/ mmcb/ profiles/ uploads/ (default ./weir-data)",
       [](S& s, const Text& v) { s.data = not_empty(v); }},
      {"bind", "ADDR", "address to listen on; a loopback address (default 127.0.0.1)",
       [](S& s, const Text& v) { s.bind = to_bind_address(v); }},
      {"port", "N", "port to listen on; 0 takes a free one (default 8080)",
       [](S& s, const Text& v) { s.port = to_port(v); }},
      {"ffmpeg", "PATH", "the transcoder program (default: ffmpeg, found on PATH)",
       [](S& s, const Text& v) { s.ffmpeg = not_empty(v); }},
      {"ffprobe", "PATH", "the probe program (default: ffprobe, found on PATH)",
       [](S& s, const Text& v) { s.ffprobe = not_empty(v); }},
      {"probe-timeout", "SECONDS", "time after which the probe of an input gives up (default 10)",
       [](S& s, const Text& v) { s.probe_timeout = to_seconds(v); }},
      {"gpu-patch-library", "PATH", "library preloaded into transcoders that use NVENC (default: none)",
       [](S& s, const Text& v) { s.gpu_patch_library = v; }},
      {"log-level", "L", "debug, info, warning or error (default info)",
       [](S& s, const Text& v) { s.log_level = to_log_level(v); }},
      {"no-assertions", "", "do without the internal assertion checks",
       [](S& s, const Text& v) { s.assertions = !to_switch(v); }},
  };
  return table;
}

void apply_setting(ServerSettings& settings, const Setting& setting, const std::string& value,
                   std::string_view origin) {
  try {
    setting.set(settings, value);
  } catch (const std::invalid_argument& expected) {
    throw SettingsError(
        fmt::format("{}: \"{}\" is no value for {}: expected {}", origin, value, setting.name, expected.what()));
  }
}

}  // namespace weir
