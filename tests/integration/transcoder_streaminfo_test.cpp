#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <sstream>

#include "backend/base/text_form.h"
#include "backend/platform/files.h"
#include "backend/services/transcoder/report/media_stream_info.h"

namespace weir {
namespace {

/// What FFmpeg printed about one kind of source, and what is to be read from it: a line for each stream.
struct Recording {
  const char* name;
  std::vector<std::string> inputs;
  std::vector<std::string> outputs;
};

// type codec/profile language | shape rate | bit rate/average
const Recording recordings[] = {
    {"ts_copied",
     {"video h264/Constrained Baseline 640x360 25 yuv420p", "audio aac/LC 48000 stereo 98k"},
     {"video h264/Constrained Baseline 640x360 25 yuv420p avg 1084k", "audio aac/LC 48000 stereo 98k"}},
    {"ts_from_pipe_copied",
     {"video h264/Constrained Baseline 640x360 25 yuv420p", "audio aac/LC 48000 stereo 98k"},
     {"video h264/Constrained Baseline 640x360 25 yuv420p avg 403k", "audio aac/LC 48000 stereo 98k"}},
    {"mkv_two_languages",
     {"video hevc/Main 640x360 25 yuv420p", "audio aac/LC eng 48000 mono", "audio aac/LC ger 48000 mono",
      "subtitle subrip fre"},
     {"video h264 640x360 25 yuv420p 1200k avg 1200k", "audio aac/LC eng 48000 stereo 96k",
      "audio aac/LC ger 48000 stereo 96k", "subtitle subrip fre"}},
    {"mp3_audio_only", {"audio mp3 48000 mono 128k"}, {"audio aac/LC 48000 mono 96k"}},
    {"webm_vp9",
     {"video vp9/Profile 0 640x360 25 yuv420p", "audio opus 48000 mono"},
     {"video h264 640x360 25 yuv420p 1200k avg 1200k", "audio aac/LC 48000 stereo 96k"}},
    {"slideshow", {"video mjpeg/Baseline 640x360 5 yuvj420p"}, {"video h264 640x360 5 yuv420p 1200k avg 1200k"}},
    {"mjpeg_avi",
     {"video mjpeg/Baseline 640x360 25 yuvj420p 1754k avg 1754k"},
     {"video h264 640x360 25 yuvj420p avg 403k"}},
    {"lavfi_ladder",
     {"video rawvideo 1280x720 29.97 yuv420p", "audio pcm_s16le 44100 mono 705k"},
     {"video h264 1280x720 29.97 yuv420p 1800k avg 1800k", "video h264 640x360 29.97 yuv420p 500k avg 500k",
      "audio aac/LC 44100 stereo 96k"}},
};

std::vector<std::string> summarize(const Value& streams) {
  std::vector<std::string> lines;
  for (const Value& stream : streams) {
    std::string line = to_text(stream["type"]) + " " + to_text(stream["codec"]);
    if (stream.contains("profile")) line += "/" + to_text(stream["profile"]);
    if (stream.contains("language")) line += " " + to_text(stream["language"]);
    if (stream.contains("width")) line += " " + to_text(stream["width"]) + "x" + to_text(stream["height"]);
    if (stream.contains("fps")) line += " " + stream["fps"].dump().substr(0, stream["fps"].dump().find(".0"));
    for (const char* name : {"pix_fmt", "sample_rate", "channels"}) {
      if (stream.contains(name)) line += " " + to_text(stream[name]);
    }
    if (stream.contains("bitrate")) line += " " + to_text(stream["bitrate"]) + "k";
    if (stream.contains("bitrate_avg")) line += " avg " + to_text(stream["bitrate_avg"]) + "k";
    lines.push_back(line);
  }
  return lines;
}

MediaStreamInfo read_recording(const std::string& name) {
  std::istringstream text(read_file(std::string(WEIR_TEST_DATA) + "/" + name, 1 << 20));
  MediaStreamInfo info;
  for (std::string line; std::getline(text, line);) info.parse(line + "\n");
  return info;
}

TEST(RecordedStreamInfoTest, ReadsEveryKindOfSourceWithAndWithoutColours) {
  for (const Recording& recording : recordings) {
    for (const char* ending : {".txt", ".color.txt"}) {
      SCOPED_TRACE(recording.name + std::string(ending));
      const MediaStreamInfo info = read_recording(recording.name + std::string(ending));
      EXPECT_EQ(summarize(info.dump_inputs()), recording.inputs);
      EXPECT_EQ(summarize(info.dump_outputs()), recording.outputs);
    }
  }
}

}  // namespace
}  // namespace weir
