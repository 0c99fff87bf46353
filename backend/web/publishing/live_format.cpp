#include "backend/web/publishing/live_format.h"

#include "backend/web/publishing/audio_frames.h"
#include "backend/web/publishing/transport_stream.h"

namespace weir {

std::unique_ptr<LiveFormat> make_live_format(std::string_view format) {
  if (format == "mp3") return std::make_unique<AudioFrames>(mp3_frame_size);
  if (format == "adts") return std::make_unique<AudioFrames>(adts_frame_size);
  return std::make_unique<TransportStream>();
}

}  // namespace weir
