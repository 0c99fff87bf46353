#include "backend/web/publishing/media_playlist.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

// As FFmpeg writes it.
constexpr const char* written =
    "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:1007\n"
    "#EXTINF:2.000000,\n#EXT-X-PROGRAM-DATE-TIME:2026-11-23T17:09:04.674+0100\nplaylist_1_1007.ts\n"
    "#EXTINF:1.960000,\n#EXT-X-PROGRAM-DATE-TIME:2026-11-23T17:09:06.674+0100\nplaylist_1_1008.ts\n#EXT-X-ENDLIST\n";

std::vector<HlsSegment> make_segments(long long first, int count, double duration = 2) {
  std::vector<HlsSegment> segments;
  for (int i = 0; i < count; ++i) segments.push_back({.number = first + i, .duration = duration});
  return segments;
}

TEST(MediaPlaylistTest, ReadsWhatTheTranscoderWrites) {
  const auto playlist = parse_media_playlist(written, 1);
  ASSERT_TRUE(playlist);
  EXPECT_EQ(playlist->target_duration, 2);
  EXPECT_TRUE(playlist->ended);
  ASSERT_EQ(playlist->segments.size(), 2U);
  EXPECT_EQ(playlist->segments[1].number, 1008);
  EXPECT_EQ(playlist->segments[1].duration, 1.96);
  EXPECT_EQ(format_program_time(playlist->segments[1].start_time), "2026-11-23T16:09:06.674Z");
}

TEST(MediaPlaylistTest, RefusesWhatIsNoPlaylistOfTheRendition) {
  EXPECT_FALSE(parse_media_playlist(written, 0));
  for (const char* text : {"", "#EXTM3U8", "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:x", "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:-1",
                           "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:3\nplaylist_1_4.ts", "#EXTM3U\n../playlist_1_0.ts",
                           "#EXTM3U\n#EXT-X-PROGRAM-DATE-TIME:today\nplaylist_1_0.ts"})
    EXPECT_FALSE(parse_media_playlist(text, 1)) << text;
}

TEST(MediaPlaylistTest, WhatIsWrittenReadsTheSameAndADiscontinuityIsCountedWhenItsSegmentLeaves) {
  MediaPlaylist playlist{.rendition = 2, .target_duration = 4, .independent_segments = true};
  for (const auto& [left, sequence] : {std::pair(0, "-SEQUENCE:0\n"), {2, "-SEQUENCE:0\n"}, {3, "-SEQUENCE:3\n"}}) {
    playlist.segments = join_cycles(make_segments(7, 2), make_segments(8, 3), 9, 3);  // 8 is kept already
    playlist.segments.erase(playlist.segments.begin(), playlist.segments.begin() + left);
    const std::string text = format_media_playlist(playlist);
    EXPECT_NE(text.find(sequence), std::string::npos) << text;
    EXPECT_EQ(text.find("#EXT-X-DISCONTINUITY\n") != std::string::npos, left < 3) << text;
    const auto read = parse_media_playlist(text, 2);
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(format_media_playlist(*read), text);
    EXPECT_EQ(read->segments.back().discontinuity, 3);
  }
}

TEST(MediaPlaylistTest, ShowsSoManySegmentsAndThreeTargetDurations) {
  const std::tuple<int, double, std::size_t, int, std::size_t> cases[] = {
      {14, 4, 6, 4, 6}, {14, 1, 6, 4, 12}, {14, 1, 6, 5, 14}, {2, 4, 6, 4, 2}, {14, 4, 1, 4, 3}, {0, 4, 6, 4, 0}};
  for (const auto& [segments, duration, count, target, shown] : cases)
    EXPECT_EQ(count_shown(make_segments(1, segments, duration), count, target), shown);
}

}  // namespace
}  // namespace weir
