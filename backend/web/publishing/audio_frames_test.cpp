#include "backend/web/publishing/audio_frames.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

std::string header(std::initializer_list<int> bytes) {
  std::string text(bytes.begin(), bytes.end());
  text.resize(audio_header_size);
  return text;
}

TEST(AudioFramesTest, KnowsTheSizesOfFrames) {
  const std::tuple<FrameSize, std::string, std::size_t> cases[] = {
      {mp3_frame_size, header({0xff, 0xfb, 0x90, 0x00}), 417},  // MPEG-1 layer III, 128 kbit/s, 44.1 kHz
      {mp3_frame_size, header({0xff, 0xfb, 0x92, 0x00}), 418},  // the same, padded
      {mp3_frame_size, header({0xff, 0xe3, 0x40, 0x00}), 208},  // MPEG-2.5 layer III, 32 kbit/s, 11.025 kHz
      {mp3_frame_size, header({0xff, 0xfd, 0xa4, 0x00}), 576},  // MPEG-1 layer II, 192 kbit/s, 48 kHz
      {mp3_frame_size, header({0xff, 0xfb, 0x00, 0x00}), 0},    // free bit rate
      {mp3_frame_size, header({0xff, 0xfb, 0x9c, 0x00}), 0},    // no such sample rate
      {mp3_frame_size, header({0xff, 0xf1, 0x90, 0x00}), 0},    // no such layer: ADTS
      {mp3_frame_size, header({0xfe, 0xfb, 0x90, 0x00}), 0},    // no synchronisation
      {adts_frame_size, header({0xff, 0xf1, 0x4c, 0x80, 0x2e, 0x7f, 0xfc}), 371},
      {adts_frame_size, header({0xff, 0xf1, 0x4c, 0x80, 0x00, 0xdf, 0xfc}), 0},  // shorter than its header
  };
  for (const auto& [frame_size, bytes, size] : cases)
    EXPECT_EQ(frame_size(bytes), size) << testing::PrintToString(bytes);
}

TEST(AudioFramesTest, GivesWholeFramesOnlyHoweverTheBytesAreCut) {
  std::string frame = header({0xff, 0xfb, 0x90, 0x00});
  frame.resize(417, 'x');
  const std::string sent = "garbage\xff" + frame + frame + "\xff\xfb" + frame.substr(0, 400);
  for (const std::size_t piece : {std::size_t{1}, std::size_t{100}, sent.size()}) {
    AudioFrames frames(mp3_frame_size);
    frames.begin_run();
    LiveChunk chunk;
    for (std::size_t at = 0; at < sent.size(); at += piece) frames.add(std::string_view(sent).substr(at, piece), chunk);
    EXPECT_EQ(chunk.bytes, frame + frame) << piece;
    EXPECT_EQ(chunk.start, 0u);
    frames.begin_run();
    LiveChunk next;
    frames.add(frame, next);
    EXPECT_EQ(next.bytes, frame) << "what the last run left unfinished is dropped";
  }
}

}  // namespace
}  // namespace weir
