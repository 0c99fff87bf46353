#include "backend/services/transcoder/output/hls_output.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "backend/collaborators/utils.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/transcoder/encoding/video_arguments.h"

namespace weir {

namespace {

// A live playlist never gets shorter than three target durations (RFC 8216, 6.2.2).
constexpr int min_shown_segments = 3;

std::string double_percents(const std::string& text) {
  std::string doubled;
  for (char c : text) doubled.append(c == '%' ? 2 : 1, c);
  return doubled;
}

OutputTarget make_variant(const HlsOutput& hls, const std::string& directory, std::size_t index, int listed,
                          long long first_segment) {
  OutputTarget target;
  target.format = "hls";
  target.rendition = index;
  target.address = join_path(directory, fmt::format("playlist_{}.m3u8", index));
  const std::string segments = join_path(double_percents(directory), fmt::format("playlist_{}_%d.ts", index));
  target.options = {{"hls_time", fmt::format("{}", hls.segment_time)},
                    {"hls_init_time", fmt::format("{}", std::min(hls.segment_time, first_segment_seconds))},
                    {"hls_list_size", std::to_string(listed)},
                    {"hls_flags", "program_date_time"},
                    {"start_number", std::to_string(first_segment)},
                    {"hls_segment_type", "mpegts"},
                    {"hls_segment_filename", segments}};
  return target;
}

}  // namespace

HlsOutput read_hls_output(const Settings& output) {
  HlsOutput hls;
  hls.playlist_name = std::filesystem::path(output.text("playlist_name")).filename().string();
  if (!hls.playlist_name.ends_with(".m3u8")) {
    output.refuse_value("playlist_name", "is not a file name that ends in .m3u8");
  }
  const std::string fault = find_playlist_name_fault(hls.playlist_name);
  if (!fault.empty()) output.refuse("playlist_name", fault);
  hls.segment_time = output.number("segment_time", 1, 60).value_or(4);
  hls.list_size = static_cast<int>(output.whole("list_size", 1, 1000).value_or(6));
  return hls;
}

std::vector<OutputTarget> make_hls_targets(const HlsOutput& hls, const std::string& directory, int listed,
                                           const std::vector<long long>& first_segments) {
  const std::string absolute = std::filesystem::absolute(directory).lexically_normal().string();
  std::vector<OutputTarget> targets;
  for (std::size_t i = 0; i < first_segments.size(); ++i)
    targets.push_back(make_variant(hls, absolute, i, listed, first_segments[i]));
  return targets;
}

int count_listed_segments(const HlsOutput& hls, const Encoding& encoding) {
  const int shown = std::max(hls.list_size, min_shown_segments);
  const bool has_fixed_segments = encoding.has_video && !encoding.video_copied;
  return has_fixed_segments ? 3 * shown + 2 : 4 * shown;
}

std::optional<std::string> get_master_playlist(const HlsOutput& hls, std::size_t renditions) {
  for (std::size_t i = 0; i < renditions; ++i) {
    if (hls.playlist_name != fmt::format("playlist_{}.m3u8", i)) continue;
    if (renditions == 1) return std::nullopt;
    throw ValueError(
        fmt::format("\"playlist_name\" cannot be {}: it is the playlist of one of the renditions", hls.playlist_name));
  }
  return hls.playlist_name;
}

}  // namespace weir
