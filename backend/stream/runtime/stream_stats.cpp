#include "backend/stream/runtime/stream_stats.h"

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "backend/base/numbers.h"
#include "backend/platform/failure.h"
#include "backend/stream/runtime/progress_pattern.h"

namespace weir {

namespace {

constexpr std::string_view not_available = "N/A";

// Without its last `count` characters; a character may be several bytes.
std::string_view without_end(std::string_view text, int count) {
  for (; count > 0 && !text.empty(); --count) {
    while (text.size() > 1 && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.remove_suffix(1);
    text.remove_suffix(1);
  }
  return text;
}

bool read_figure(std::string_view text, StreamStats::Figure& figure) {
  const auto value = parse_float(text);
  if (value) figure = {*value, false};
  return value.has_value();
}

struct MediaTime {
  long long whole_seconds = 0;
  double seconds = 0;
};

// "hours:minutes:seconds".
std::optional<MediaTime> read_time(std::string_view text) {
  const std::size_t first = text.find(':');
  const std::size_t second = text.find(':', first == std::string_view::npos ? first : first + 1);
  if (second == std::string_view::npos || text.find(':', second + 1) != std::string_view::npos) return std::nullopt;
  const auto hours = parse_integer(text.substr(0, first));
  const auto minutes = parse_integer(text.substr(first + 1, second - first - 1));
  const auto seconds = parse_float(text.substr(second + 1));
  if (!hours || !minutes || !seconds || std::isnan(*seconds)) return std::nullopt;
  // The sum of three such parts fits an integer.
  constexpr double max_part = 3e18;
  const double parts[] = {static_cast<double>(*hours) * 3600, static_cast<double>(*minutes) * 60, *seconds};
  for (const double part : parts) {
    if (std::abs(part) > max_part) throw OverflowError("media time out of range");
  }
  return MediaTime{*hours * 3600 + *minutes * 60 + static_cast<long long>(*seconds), parts[0] + parts[1] + parts[2]};
}

}  // namespace

bool StreamStats::update(std::string_view line) {
  const auto fields = find_progress(line);
  if (!fields) return false;
  if (!fields->fps) fps = {};
  if (fields->fps && !read_figure(*fields->fps, fps)) return false;
  const auto new_quality = fields->quality ? parse_float(*fields->quality) : -1.0;
  if (!new_quality) return false;
  quality = *new_quality;
  if (fields->time != not_available) {
    const auto value = read_time(fields->time);
    if (!value) return false;
    time = value->whole_seconds;
    media_seconds = value->seconds;
  }
  if (fields->bitrate != not_available && !read_figure(without_end(fields->bitrate, 7), bitrate)) return false;
  if (fields->speed != not_available && !read_figure(without_end(fields->speed, 1), speed)) return false;
  if (time < 0) {
    time = 0;
    media_seconds = 0;
    return false;
  }
  return true;
}

Value StreamStats::to_value(Figure figure) {
  return figure.integer ? Value(static_cast<long long>(figure.value)) : Value(figure.value);
}

}  // namespace weir
