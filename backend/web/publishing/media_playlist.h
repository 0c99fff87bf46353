#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// One segment of a media playlist (RFC 8216).
struct HlsSegment {
  long long number = 0;         ///< its media sequence number
  double duration = 0;          ///< seconds
  long long start_time = 0;     ///< wall clock of its first sample, in milliseconds since the Unix epoch
  long long discontinuity = 0;  ///< its discontinuity sequence number
  int breaks = 0;               ///< discontinuities right before it: it begins a cycle
};

/// A media playlist of a rendition. The address of a segment follows from rendition and number.
struct MediaPlaylist {
  std::size_t rendition = 0;
  int target_duration = 0;  ///< seconds
  bool independent_segments = false;
  bool ended = false;
  std::vector<HlsSegment> segments = {};  ///< the oldest first
};

/// "playlist_RENDITION.m3u8"
std::string media_playlist_name(std::size_t rendition);
/// "playlist_RENDITION_NUMBER.ts"
std::string segment_name(std::size_t rendition, long long number);
/// The rendition that a file name is the media playlist of.
std::optional<std::size_t> parse_media_playlist_name(std::string_view name);

/// Reads a playlist that the transcoder wrote, or `format_media_playlist`. Nothing when it is none of the rendition or
/// not whole.
std::optional<MediaPlaylist> parse_media_playlist(std::string_view text, std::size_t rendition);

std::string format_media_playlist(const MediaPlaylist& playlist);

/// The time as RFC 8216 wants it: 2026-01-31T23:59:59.999Z.
std::string format_program_time(long long milliseconds);

/// The number of segments at the end of the list that a live playlist shows: at least `count`, and three target
/// durations, below which it never gets (RFC 8216, 6.2.2).
std::size_t count_shown(const std::vector<HlsSegment>& segments, std::size_t count, int target_duration);

/// Ties a cycle's segments to those kept from the cycles before. Segments that are among `kept` already are skipped.
/// The first one of the cycle has the number `first`; the cycle's discontinuity sequence number is `discontinuity`.
std::vector<HlsSegment> join_cycles(std::vector<HlsSegment> kept, const std::vector<HlsSegment>& cycle, long long first,
                                    long long discontinuity);

}  // namespace weir
