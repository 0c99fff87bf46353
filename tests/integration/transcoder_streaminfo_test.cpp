#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "backend/platform/files.h"
#include "backend/services/transcoder/report/media_stream_info.h"

namespace weir {
namespace {

std::string recording(const std::string& name) { return read_file(WEIR_TEST_DATA "/" + name, 1 << 20); }

TEST(RecordedStreamInfoTest, ReadsEveryKindOfSourceWithAndWithoutColours) {
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

}  // namespace
}  // namespace weir
