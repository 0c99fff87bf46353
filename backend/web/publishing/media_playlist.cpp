#include "backend/web/publishing/media_playlist.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <ctime>

#include "backend/base/numbers.h"

namespace weir {

namespace {

// Cuts the prefix off.
bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

template <class Number>
std::optional<Number> take_number(std::string_view& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::string_view take_line(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

// Seconds east of UTC: "Z", "+0100" or "+01:00".
std::optional<long long> parse_zone(std::string_view zone) {
  if (zone == "Z") return 0;
  const bool west = zone.starts_with('-');
  if (!west && !zone.starts_with('+')) return std::nullopt;
  std::string digits(zone.substr(1));
  std::erase(digits, ':');
  std::string_view rest = digits;
  const auto number = take_number<int>(rest);
  if (digits.size() != 4 || !rest.empty() || !number || *number < 0) return std::nullopt;
  const long long seconds = (*number / 100) * 3600 + (*number % 100) * 60;
  return west ? -seconds : seconds;
}

// 2026-01-31T23:59:59.999+0100
std::optional<long long> parse_program_time(std::string_view text) {
  std::tm time{};
  const std::string terminated(text);
  const char* rest = ::strptime(terminated.c_str(), "%Y-%m-%dT%H:%M:%S", &time);
  if (!rest) return std::nullopt;
  std::string_view tail = rest;
  double fraction = 0;
  if (tail.starts_with('.')) {
    const std::size_t end = std::min(tail.find_first_not_of("0123456789", 1), tail.size());
    fraction = parse_float("0" + std::string(tail.substr(0, end))).value_or(0);
    tail.remove_prefix(end);
  }
  const auto zone = parse_zone(tail);
  if (!zone) return std::nullopt;
  return (::timegm(&time) - *zone) * 1000 + static_cast<long long>(fraction * 1000 + 0.5);
}

/// Reads the tags that stand before a segment's address.
class PlaylistReader {
 public:
  explicit PlaylistReader(std::size_t rendition) { playlist_.rendition = rendition; }

  // False when the line can't be in such a playlist.
  bool read(std::string_view line) {
    if (line.empty()) return true;
    if (!line.starts_with('#')) return read_address(line);
    if (take(line, "#EXT-X-TARGETDURATION:")) return store(take_number<int>(line), playlist_.target_duration);
    if (take(line, "#EXT-X-MEDIA-SEQUENCE:")) return store(take_number<long long>(line), next_.number);
    if (take(line, "#EXT-X-DISCONTINUITY-SEQUENCE:")) return store(take_number<long long>(line), next_.discontinuity);
    if (take(line, "#EXTINF:")) return store(take_number<double>(line), next_.duration);
    if (take(line, "#EXT-X-PROGRAM-DATE-TIME:")) return store(parse_program_time(line), next_.start_time);
    if (line == "#EXT-X-DISCONTINUITY") ++next_.breaks;
    if (line == "#EXT-X-INDEPENDENT-SEGMENTS") playlist_.independent_segments = true;
    if (line == "#EXT-X-ENDLIST") playlist_.ended = true;
    return true;
  }

  MediaPlaylist take_playlist() { return std::move(playlist_); }

 private:
  template <class Number>
  static bool store(std::optional<Number> number, Number& to) {
    if (number && *number >= 0) to = *number;
    return number && *number >= 0;
  }

  bool read_address(std::string_view address) {
    if (address != segment_name(playlist_.rendition, next_.number)) return false;
    next_.discontinuity += next_.breaks;
    playlist_.segments.push_back(next_);
    ++next_.number;
    next_.breaks = 0;
    return true;
  }

  MediaPlaylist playlist_;
  HlsSegment next_;
};

}  // namespace

std::string media_playlist_name(std::size_t rendition) { return fmt::format("playlist_{}.m3u8", rendition); }

std::string segment_name(std::size_t rendition, long long number) {
  return fmt::format("playlist_{}_{}.ts", rendition, number);
}

std::optional<std::size_t> parse_media_playlist_name(std::string_view name) {
  std::string_view rest = name;
  if (!take(rest, "playlist_")) return std::nullopt;
  const auto rendition = take_number<std::size_t>(rest);
  if (!rendition || name != media_playlist_name(*rendition)) return std::nullopt;
  return rendition;
}

std::optional<MediaPlaylist> parse_media_playlist(std::string_view text, std::size_t rendition) {
  if (take_line(text) != "#EXTM3U") return std::nullopt;
  PlaylistReader reader(rendition);
  while (!text.empty()) {
    if (!reader.read(take_line(text))) return std::nullopt;
  }
  return reader.take_playlist();
}

std::string format_media_playlist(const MediaPlaylist& playlist) {
  const HlsSegment first = playlist.segments.empty() ? HlsSegment{} : playlist.segments.front();
  std::string text = fmt::format("#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:{}\n#EXT-X-MEDIA-SEQUENCE:{}\n",
                                 playlist.target_duration, first.number);
  text += fmt::format("#EXT-X-DISCONTINUITY-SEQUENCE:{}\n", first.discontinuity - first.breaks);
  if (playlist.independent_segments) text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
  for (const HlsSegment& segment : playlist.segments) {
    for (int i = 0; i < segment.breaks; ++i) text += "#EXT-X-DISCONTINUITY\n";
    text += fmt::format("#EXT-X-PROGRAM-DATE-TIME:{}\n#EXTINF:{:.6f},\n{}\n", format_program_time(segment.start_time),
                        segment.duration, segment_name(playlist.rendition, segment.number));
  }
  if (playlist.ended) text += "#EXT-X-ENDLIST\n";
  return text;
}

std::string format_program_time(long long milliseconds) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(milliseconds / 1000)),
                     milliseconds % 1000);
}

std::size_t count_shown(const std::vector<HlsSegment>& segments, std::size_t count, int target_duration) {
  double duration = 0;
  std::size_t shown = 0;
  while (shown < segments.size() && (shown < count || duration < 3 * target_duration)) {
    ++shown;
    duration += segments[segments.size() - shown].duration;
  }
  return shown;
}

std::vector<HlsSegment> join_cycles(std::vector<HlsSegment> kept, const std::vector<HlsSegment>& cycle, long long first,
                                    long long discontinuity) {
  const long long last_kept = kept.empty() ? first - 1 : kept.back().number;
  const long long before = kept.empty() ? discontinuity : kept.back().discontinuity;
  for (HlsSegment segment : cycle) {
    if (segment.number <= last_kept) continue;
    segment.discontinuity = discontinuity;
    segment.breaks = segment.number == first ? static_cast<int>(discontinuity - before) : 0;
    kept.push_back(segment);
  }
  return kept;
}

}  // namespace weir
