#include "backend/services/transcoder/report/media_stream_info.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "backend/platform/files.h"

namespace weir {
namespace {

MediaStreamInfo read(std::initializer_list<const char*> lines) {
  MediaStreamInfo info;
  for (const char* line : lines) info.parse(std::string(line) + "\n");
  return info;
}

std::string recording(const std::string& name) { return read_file(WEIR_TEST_DATA "/" + name, 1 << 20); }

TEST(MediaStreamInfoTest, ReadsEveryKindOfSourceWithAndWithoutColours) {
  for (const std::string name : {"ts_copied", "ts_from_pipe_copied", "mkv_two_languages", "mp3_audio_only", "webm_vp9",
                                 "slideshow", "mjpeg_avi", "lavfi_ladder"}) {
    for (const char* ending : {".txt", ".color.txt"}) {
      std::istringstream text(recording(name + ending));
      MediaStreamInfo info;
      for (std::string line; std::getline(text, line);) info.parse(line + "\n");
      const Value streams = {{"inputs", info.dump_inputs()}, {"outputs", info.dump_outputs()}};
      EXPECT_EQ(streams, Value::parse(recording(name + ".json"))) << name << ending;
    }
  }
}

TEST(MediaStreamInfoTest, ReadsDescriptionsThatAThreadWroteInto) {
  const MediaStreamInfo info = read({
      "Output #0, tee, to 'x':",
      "  Stream #0:0Connection to tcp://127.0.0.1:1 failed: Connection refused",
      "[rtmp @ 0x7f4e78001040] Cannot open connection tcp://127.0.0.1:1",
      ": Video: h264, yuv420p(progressive), 320x180 [SAR 1:1 DAR 16:9], q=2-31, 300 kb/s, 25 fps, 25 tbn (default)",
      "  Stream #0:1: Video: h264, yuv420p, 160x90 [SAR 1:1 DAR 16:9], q=2-31, 100 kb/sError opening rtmp://h: refused",
      ", 25 fps, 25 tbn",
      "  Stream #0:2Recovery failed: Connection refused",
      "(eng): Audio: aac (LC), 48000 Hz, stereo, fltp, 128 kb/sRecovery failed",
  });
  EXPECT_EQ(info.dump_outputs().dump(),
            R"([{"index":0,"type":"video","codec":"h264","width":320,"height":180,"fps":25.0,"pix_fmt":"yuv420p",)"
            R"("bitrate":300,"bitrate_avg":300},)"
            R"({"index":1,"type":"video","codec":"h264","width":160,"height":90,"pix_fmt":"yuv420p",)"
            R"("bitrate":100,"bitrate_avg":100},)"
            R"({"index":2,"type":"audio","codec":"aac","profile":"LC","language":"eng","sample_rate":48000,)"
            R"("channels":"stereo","bitrate":128}])");
}

TEST(MediaStreamInfoTest, FiguresThatCannotBeAreUnknown) {
  const MediaStreamInfo info = read({
      "Input #0, mpegts, from 'x':",
      "  Duration: N/A, start: 0.0, bitrate: 9223372036854775807 kb/s",
      "  Stream #0:0: Video: h264, yuv420p, 2000000000x2000000000, nan kb/s, inf fps, 1000000000k tbr",
      "  Stream #0:1: Audio: aac, nan Hz, stereo, fltp, 1e300 kb/s",
      "  Stream #0:2: Audio: aac, 1000000000k Hz, 1000000001 kb/s",
      "Output #0, mpegts, to 'x':",
      "  Stream #0:0: Video: h264, yuv420p, 65536x65536, 1000000000 fps",
      "    Metadata:",
      "      cpb: bitrate max/min/avg: 1/1/1000 buffer size: 0",
      "    Side data:",
      "      cpb: bitrate max/min/avg: 0/0/9223372036854775807 buffer size: 0",
  });
  EXPECT_EQ(
      info.dump_inputs().dump(),
      R"([{"index":0,"type":"video","codec":"h264","pix_fmt":"yuv420p"},{"index":1,"type":"audio","codec":"aac"},)"
      R"({"index":2,"type":"audio","codec":"aac"}])");
  EXPECT_EQ(info.get_stream_by_specifier({"v", 0, 0}, true).at(0).bitrate_avg, 1'000'000'000);
}

TEST(MediaStreamInfoTest, StaysBoundedAndWholeOnGarbage) {
  MediaStreamInfo info;
  info.parse("Input #0, x, from 'y':\n");
  for (int i = 0; i < 5000; ++i)
    info.parse("  Stream #0:" + std::to_string(i) + ": Video: a, b, 99999999999x1, 1e99 fps\n");
  EXPECT_EQ(info.dump_inputs().size(), MediaStreamInfo::max_streams);
  for (const char* line :
       {"  Stream #", "  Stream #0:", "  Stream #0:0", "  Stream #0:0[", "  Stream #0:0(", "  Stream #-1:0: Video: x",
        "  Stream #0:0: Video: ,,,((((", "  Stream #0:0: Audio: , Hz, kb/s", "  Duration: "})
    info.parse(line);
  info.parse("  Stream #0:300: Video: " + std::string(60'000, '(') + "\n");
  EXPECT_EQ(info.dump_inputs().size(), MediaStreamInfo::max_streams);
}

}  // namespace
}  // namespace weir
