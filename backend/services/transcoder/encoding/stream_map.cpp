#include "backend/services/transcoder/encoding/stream_map.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

bool is_map_character(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == ':' || c == '#' || c == '_';
}

bool is_stream_id(std::string_view text) {
  const bool is_hex = text.starts_with("0x");
  if (is_hex) text.remove_prefix(2);
  return !text.empty() &&
         text.find_first_not_of(is_hex ? "0123456789abcdefABCDEF" : "0123456789") == std::string_view::npos;
}

/// What FFmpeg takes behind the number of an input: with anything else the transcoder ends.
bool is_stream_specifier(std::string_view text) {
  if (is_number(text) || text == "u") return true;
  if (text.starts_with('#')) return is_stream_id(text.substr(1));
  if (text.starts_with("i:")) return is_stream_id(text.substr(2));
  if (text.starts_with("m:")) return text.size() > 2;
  const bool is_program = text.starts_with("p:");
  if (is_program) text.remove_prefix(2);
  const std::size_t colon = text.find(':');
  const std::string_view first = text.substr(0, colon);
  const bool is_known = is_program
                            ? is_number(first)
                            : first.size() == 1 && std::string_view("vVasdt").find(first) != std::string_view::npos;
  return is_known && (colon == std::string_view::npos || is_stream_specifier(text.substr(colon + 1)));
}

/// "v:1", "1", "i:0x101" or "#0x101", each with or without the number of the input ahead; a letter alone is its first.
std::string read_map(const Settings& settings, const Value& value, char type) {
  std::string map(trim(to_text(value)));
  const bool plain = (value.is_string() || value.is_number_unsigned()) && map.size() <= 100;
  const auto refuse = [&] { settings.refuse_value("map", std::string("is not a stream such as ") + type + ":0"); };
  if (!plain || map.empty() || !std::ranges::all_of(map, is_map_character)) refuse();
  if (map.starts_with("0:")) map.erase(0, 2);
  if (!is_stream_specifier(map)) refuse();
  return "0:" + map + (map.size() == 1 && !is_number(map) ? ":0" : "");
}

/// 'V' leaves out attached pictures (cover art).
std::string default_map(char type) { return type == 'v' ? "0:V:0" : std::string("0:") + type + ":0"; }

}  // namespace

std::vector<std::string> read_stream_maps(const Settings& settings, char type) {
  if (!settings.has("map")) return {default_map(type) + "?"};
  const Value& value = settings.raw("map");
  if (!value.is_array() && !value.is_object()) return {read_map(settings, value, type) + "?"};
  std::vector<std::string> maps;
  for (const Value& item : value) maps.push_back(read_map(settings, item, type) + "?");
  if (maps.size() > 16) settings.refuse("map", "more than 16 streams");
  return maps.empty() ? std::vector{default_map(type) + "?"} : maps;
}

std::string read_video_input(const Settings& video) {
  std::vector<std::string> maps = read_stream_maps(video, 'v');
  if (maps.size() != 1) video.refuse("map", "only one video stream can be mapped");
  maps[0].pop_back();
  return maps[0];
}

}  // namespace weir
