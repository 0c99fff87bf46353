#pragma once

#include <cstddef>
#include <string>

#include "backend/web/publishing/live_format.h"

namespace weir {

/// The bytes of the frame that begins with this header; 0 when it is no header of one.
using FrameSize = std::size_t (*)(std::string_view header);

inline constexpr std::size_t audio_header_size = 7;
/// MPEG audio (ISO 11172-3, 13818-3 and the 2.5 extension), layers I to III.
std::size_t mp3_frame_size(std::string_view header);
/// AAC in ADTS (ISO 13818-7).
std::size_t adts_frame_size(std::string_view header);

/// A stream of audio frames, each of which a viewer can begin with. Only whole frames come out.
class AudioFrames : public LiveFormat {
 public:
  explicit AudioFrames(FrameSize frame_size) : frame_size_(frame_size) {}
  void begin_run() override { unread_.clear(); }
  void add(std::string_view bytes, LiveChunk& chunk) override;

 private:
  FrameSize frame_size_;
  std::string unread_;
};

}  // namespace weir
