#include "backend/web/ffmpeg_encoders.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(FfmpegEncodersTest, OnlyLinesOfEncodersAreTaken) {
  const std::vector<FfmpegEncoder> encoders = parse_encoders(
      "Encoders:\n V..... = Video\n A..... = Audio\n ------\n"
      " V....D libx264              libx264 H.264 / AVC  (codec h264)\r\n"
      " A..X.. opus\n"
      " S..... ssa                  = ASS\n"
      "\n   \n V....D\n V....D  \n D..... data                 no media\n V....DD long                 seven flags\n"
      " V...\xc3\xa9 accent               no flags\n V....d lower                no flags\n"
      " V....D \xff                    not UTF-8\n"
      " A..... cut");
  const std::vector<FfmpegEncoder> expected = {{"libx264", "video", "libx264 H.264 / AVC  (codec h264)"},
                                               {"opus", "audio", ""},
                                               {"ssa", "subtitle", "= ASS"},
                                               {"\xff", "video", "not UTF-8"},
                                               {"cut", "audio", ""}};
  EXPECT_EQ(encoders, expected);
}

}  // namespace
}  // namespace weir
