#include "backend/web/publishing/master_playlist.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/web/publishing/media_playlist.h"

namespace weir {

namespace {

struct Profile {
  std::string_view name;
  std::string_view code;
};

// profile_idc and constraint flags, in hexadecimal (ISO/IEC 14496-10, A.2).
constexpr std::array h264_profiles{Profile{"Constrained Baseline", "42e0"},
                                   Profile{"Baseline", "4200"},
                                   Profile{"Main", "4d00"},
                                   Profile{"High", "6400"},
                                   Profile{"High 10", "6e00"},
                                   Profile{"High 4:2:2", "7a00"}};
// Profile and the profiles that it is compatible with (ISO/IEC 14496-15, E.3).
constexpr std::array hevc_profiles{Profile{"Main", "1.6"}, Profile{"Main 10", "2.4"}};
// Object types of MPEG-4 audio (ISO/IEC 14496-3, 1.5.1.1).
constexpr std::array aac_profiles{Profile{"LC", "2"}, Profile{"HE-AAC", "5"}, Profile{"HE-AACv2", "29"}};
constexpr std::array other_codecs{Profile{"mp3", "mp4a.40.34"}, Profile{"mp2", "mp4a.40.33"}, Profile{"ac3", "ac-3"},
                                  Profile{"eac3", "ec-3"}};

template <std::size_t Count>
std::string_view find_code(const std::array<Profile, Count>& profiles, std::string_view name) {
  const auto found = std::ranges::find(profiles, name, &Profile::name);
  return found == profiles.end() ? std::string_view() : found->code;
}

std::string_view text_of(const Value& value) {
  return value.is_string() ? std::string_view(value.get_ref<const std::string&>()) : std::string_view();
}

long long whole_of(const Value& value) { return value.is_number_integer() ? value.get<long long>() : 0; }

// The codec as RFC 6381 names it; empty when it is unknown.
std::string name_codec(const Value& stream) {
  const std::string_view codec = text_of(member(stream, "codec"));
  const std::string_view profile = text_of(member(stream, "profile"));
  const long long level = whole_of(member(stream, "level"));
  if (codec == "h264" && level > 0 && level < 256 && !find_code(h264_profiles, profile).empty())
    return fmt::format("avc1.{}{:02x}", find_code(h264_profiles, profile), level);
  if (codec == "hevc" && level > 0 && !find_code(hevc_profiles, profile).empty())
    return fmt::format("hvc1.{}.L{}.90", find_code(hevc_profiles, profile), level);
  if (codec == "aac" && !find_code(aac_profiles, profile).empty())
    return fmt::format("mp4a.40.{}", find_code(aac_profiles, profile));
  return std::string(find_code(other_codecs, codec));
}

}  // namespace

VariantRate measure_rate(const std::vector<SegmentSize>& segments, int target_duration) {
  double bits = 0;
  double seconds = 0;
  double peak = 0;
  for (std::size_t begin = 0; begin < segments.size(); ++begin) {
    bits += 8.0 * static_cast<double>(segments[begin].bytes);
    seconds += segments[begin].duration;
    double run_bits = 0;
    double run_seconds = 0;
    for (std::size_t i = begin; i < segments.size() && run_seconds < 1.5 * target_duration; ++i) {
      run_bits += 8.0 * static_cast<double>(segments[i].bytes);
      run_seconds += segments[i].duration;
      const bool counts = run_seconds >= 0.5 * target_duration && run_seconds <= 1.5 * target_duration;
      if (counts) peak = std::max(peak, run_bits / run_seconds);
    }
  }
  if (seconds <= 0) return {};
  const double average = bits / seconds;
  return {std::llround(std::ceil(std::max(peak, average))), std::llround(average)};
}

VariantMedia read_variant_media(const Value& description) {
  VariantMedia media;
  bool all_are_known = true;
  std::vector<std::string> codecs;
  for (const Value& stream : member(description, "streams")) {
    const std::string_view type = text_of(member(stream, "type"));
    if (type != "video" && type != "audio") continue;
    std::string codec = name_codec(stream);
    all_are_known = all_are_known && !codec.empty();
    if (std::ranges::find(codecs, codec) == codecs.end()) codecs.push_back(std::move(codec));
    if (type != "video" || media.width > 0) continue;
    media.width = whole_of(member(stream, "width"));
    media.height = whole_of(member(stream, "height"));
    const Value& rate = member(stream, "fps");
    if (rate.is_number()) media.frame_rate = rate.get<double>();
  }
  if (all_are_known) media.codecs = fmt::format("{}", fmt::join(codecs, ","));
  return media;
}

std::string format_master_playlist(const std::vector<Variant>& variants, bool independent_segments) {
  std::string text = "#EXTM3U\n#EXT-X-VERSION:3\n";
  if (independent_segments) text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
  for (const Variant& variant : variants) {
    text += fmt::format("#EXT-X-STREAM-INF:BANDWIDTH={}", variant.rate.peak);
    if (variant.rate.average > 0) text += fmt::format(",AVERAGE-BANDWIDTH={}", variant.rate.average);
    if (!variant.media.codecs.empty()) text += fmt::format(",CODECS=\"{}\"", variant.media.codecs);
    if (variant.media.width > 0 && variant.media.height > 0)
      text += fmt::format(",RESOLUTION={}x{}", variant.media.width, variant.media.height);
    if (variant.media.frame_rate > 0) text += fmt::format(",FRAME-RATE={:.3f}", variant.media.frame_rate);
    text += fmt::format("\n{}\n", media_playlist_name(variant.rendition));
  }
  return text;
}

}  // namespace weir
