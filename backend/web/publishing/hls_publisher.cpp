#include "backend/web/publishing/hls_publisher.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

namespace {

constexpr std::chrono::seconds max_unused{60};

std::uint64_t file_size(long long stream_id, const std::string& name) {
  struct stat status{};
  const std::string path = HlsWindows::find_file(stream_id, name);
  return ::stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

HlsPublisher::Stamp HlsPublisher::stamp_of(long long stream_id, std::size_t rendition) {
  struct stat status{};
  if (::stat(get_hls_path(stream_id, media_playlist_name(rendition)).c_str(), &status) != 0) return {};
  return {status.st_ino, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

HlsPublisher::Text HlsPublisher::media_playlist(long long stream_id, std::size_t rendition) {
  const HlsWindow* window = windows_.find(stream_id);
  if (!window || rendition >= window->renditions.size()) return nullptr;
  return update(stream_id, rendition).text;
}

// The rendition exists.
HlsPublisher::Media& HlsPublisher::update(long long stream_id, std::size_t rendition) {
  const HlsWindow& window = *windows_.find(stream_id);
  Playlists& playlists = playlists_[stream_id];
  playlists.asked_at = now();
  playlists.media.resize(window.renditions.size());
  Media& media = playlists.media[rendition];
  const Stamp stamp = stamp_of(stream_id, rendition);
  if (media.text && media.stamp == stamp && media.revision == window.revision) return media;
  media.stamp = stamp;
  media.revision = window.revision;
  MediaPlaylist playlist = windows_.show(stream_id, rendition);
  playlist.ended = window.ended_at.has_value();
  media.text = playlist.segments.empty() ? nullptr : std::make_shared<std::string>(format_media_playlist(playlist));
  media.shown = std::move(playlist.segments);
  return media;
}

Async<HlsPublisher::Text> HlsPublisher::master_playlist(long long stream_id) {
  for (std::size_t v = 0; media_playlist(stream_id, v); ++v) {
    if (!is_described(stream_id, v)) co_await describe(stream_id, v);
  }
  co_return make_master(stream_id);
}

HlsPublisher::Text HlsPublisher::make_master(long long stream_id) {
  const HlsWindow* window = windows_.find(stream_id);
  if (!window || window->renditions.empty()) return nullptr;
  std::vector<Text> media;
  for (std::size_t v = 0; v < window->renditions.size(); ++v) media.push_back(media_playlist(stream_id, v));
  if (std::ranges::find(media, nullptr) != media.end()) return nullptr;
  Playlists& playlists = playlists_[stream_id];
  if (playlists.master && playlists.described == media) return playlists.master;
  std::vector<Variant> variants;
  for (std::size_t v = 0; v < media.size(); ++v) variants.push_back(make_variant(stream_id, *window, v));
  playlists.described = std::move(media);
  playlists.master =
      std::make_shared<std::string>(format_master_playlist(variants, window->cycle.independent_segments));
  return playlists.master;
}

// Whether it is known what the newest segment's cycle holds. There is one.
bool HlsPublisher::is_described(long long stream_id, std::size_t rendition) {
  const Media& media = playlists_[stream_id].media[rendition];
  return media.described_cycle == media.shown.back().discontinuity;
}

Async<> HlsPublisher::describe(long long stream_id, std::size_t rendition) {
  const auto guard = co_await describing_.acquire();
  // Another request may have described it meanwhile, and the stream may be gone.
  if (!media_playlist(stream_id, rendition) || is_described(stream_id, rendition)) co_return;
  const HlsSegment segment = playlists_[stream_id].media[rendition].shown.back();
  const std::string file = HlsWindows::find_file(stream_id, segment_name(rendition, segment.number));
  VariantMedia found = co_await describe_segment(file);
  Playlists& playlists = playlists_[stream_id];
  if (rendition >= playlists.media.size()) co_return;
  playlists.media[rendition].media = std::move(found);
  playlists.media[rendition].described_cycle = segment.discontinuity;
  playlists.master = nullptr;
}

// What is unknown is left out of the playlist.
Async<VariantMedia> HlsPublisher::describe_segment(std::string path) {
  VariantMedia media;
  try {
    const Value description = co_await describe_(path);
    media = read_variant_media(description);
  } catch (const std::exception& failure) {
    log(LogLevel::warning, "HLS", fmt::format("{} can't be described: {}", path, failure.what()));
  }
  co_return media;
}

// Until three target durations are known the encoders' limit counts, too: the first seconds say little.
Variant HlsPublisher::make_variant(long long stream_id, const HlsWindow& window, std::size_t rendition) {
  Media& media = playlists_[stream_id].media[rendition];
  std::vector<SegmentSize> sizes;
  double seconds = 0;
  for (const HlsSegment& segment : media.shown) {
    sizes.push_back({segment.duration, file_size(stream_id, segment_name(rendition, segment.number))});
    seconds += segment.duration;
  }
  VariantRate rate = measure_rate(sizes, window.target_duration);
  if (seconds < 3 * window.target_duration && rendition < window.cycle.renditions.size())
    rate = {std::max(rate.peak, window.cycle.renditions[rendition].max_bitrate), 0};
  media.peak = std::max(media.peak, rate.peak);
  return {rendition, {media.peak, rate.average}, media.media};
}

void HlsPublisher::forget_unused() {
  std::erase_if(playlists_, [](const auto& entry) { return now() - entry.second.asked_at > max_unused; });
}

}  // namespace weir
