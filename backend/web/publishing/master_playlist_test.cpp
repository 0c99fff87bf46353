#include "backend/web/publishing/master_playlist.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace weir {
namespace {

TEST(MasterPlaylistTest, ThePeakIsThatOfTheRunsThatLastAboutATargetDuration) {
  const std::tuple<std::vector<SegmentSize>, long long, long long> cases[] = {
      {{}, 0, 0},
      {{{4, 500}, {4, 1000}}, 2000, 1500},
      {{{1, 1000}, {1, 500}, {4, 500}}, 6000, 2667},  // one second alone says nothing
      {{{1, 1000}}, 8000, 8000},
      {{{60, 60'000}, {4, 400}}, 7550, 7550},  // a segment that is much too long
  };
  for (const auto& [segments, peak, average] : cases) {
    const VariantRate rate = measure_rate(segments, 4);
    EXPECT_EQ(rate.peak, peak);
    EXPECT_EQ(rate.average, average);
  }
}

TEST(MasterPlaylistTest, NamesCodecsOrSaysNothingOfThem) {
  const Value aac = {{"type", "audio"}, {"codec", "aac"}, {"profile", "LC"}};
  const std::pair<Value, const char*> cases[] = {
      {{{{"type", "video"}, {"codec", "h264"}, {"profile", "High"}, {"level", 31}}, aac, aac}, "avc1.64001f,mp4a.40.2"},
      {{{{"type", "video"}, {"codec", "hevc"}, {"profile", "Main"}, {"level", 93}}}, "hvc1.1.6.L93.90"},
      {{{{"type", "audio"}, {"codec", "mp3"}}, {{"type", "data"}}}, "mp4a.40.34"},
      {{{{"type", "video"}, {"codec", "mpeg2video"}, {"profile", "Main"}, {"level", 8}}, aac}, ""},
      {{{{"type", "video"}, {"codec", "h264"}, {"profile", 100}, {"level", "31"}}}, ""},
  };
  for (const auto& [streams, codecs] : cases) EXPECT_EQ(read_variant_media({{"streams", streams}}).codecs, codecs);
}

TEST(MasterPlaylistTest, LeavesOutWhatIsUnknown) {
  const std::vector<Variant> variants = {{0, {880'000, 800'000}, {"avc1.64001f", 1280, 720, 25}},
                                         {1, {128'000, 0}, {}}};
  EXPECT_EQ(format_master_playlist(variants, true),
            "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-INDEPENDENT-SEGMENTS\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=880000,AVERAGE-BANDWIDTH=800000,CODECS=\"avc1.64001f\",RESOLUTION=1280x720,"
            "FRAME-RATE=25.000\nplaylist_0.m3u8\n#EXT-X-STREAM-INF:BANDWIDTH=128000\nplaylist_1.m3u8\n");
}

}  // namespace
}  // namespace weir
