#include <fmt/core.h>

#include <filesystem>

#include "backend/platform/files.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

std::string variant_playlist(std::size_t variant) { return fmt::format("playlist_{}.m3u8", variant); }

// The entry of one variant: bandwidth in bit/s of all its streams, and the size of its video (RFC 8216, 4.3.4.2).
std::string variant_entry(const AVStreamInfo& info, const std::vector<FFmpegStreamSpecifier>& specifiers,
                          std::size_t variant) {
  long long bandwidth = 0;
  std::string resolution;
  for (const FFmpegStreamSpecifier& specifier : specifiers) {
    for (const StreamDescription& stream : info.get_stream_by_specifier(specifier, true)) {
      if (stream.stream_type == "v" && stream.bitrate_avg) {
        bandwidth += *stream.bitrate_avg;
        resolution = fmt::format("{}x{}", stream.width, stream.height);
      } else if (stream.stream_type == "a" && stream.bitrate) {
        bandwidth += *stream.bitrate;
      }
    }
  }
  return fmt::format("#EXT-X-STREAM-INF:BANDWIDTH={},RESOLUTION={}\n{}\n\n", bandwidth * 1024, resolution,
                     variant_playlist(variant));
}

}  // namespace

Async<> master_playlist_monitor(Stream& stream) {
  const FFmpeg& ffmpeg = *stream.ffmpeg;
  if (!ffmpeg.hls_master_playlist) co_return;
  for (std::size_t variant = 0; variant < ffmpeg.hls_variants.size(); ++variant) {
    const std::filesystem::path playlist = get_hls_path(stream.id, variant_playlist(variant));
    while (!std::filesystem::exists(playlist)) co_await sleep(std::chrono::seconds(1));
  }
  std::string playlist = "#EXTM3U\n#EXT-X-VERSION:3\n";
  for (std::size_t variant = 0; variant < ffmpeg.hls_variants.size(); ++variant) {
    playlist += variant_entry(*stream.streaminfo, ffmpeg.hls_variants[variant], variant);
  }
  replace_file(get_hls_path(stream.id, *ffmpeg.hls_master_playlist), playlist);
}

}  // namespace weir
