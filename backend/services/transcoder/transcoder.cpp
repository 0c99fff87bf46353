#include "backend/services/transcoder/transcoder.h"

#include "backend/services/transcoder/output/rtmp_output.h"
#include "backend/services/transcoder/report/media_stream_info.h"
#include "backend/services/transcoder/transcoder_command.h"

namespace weir {

std::unique_ptr<FFmpeg> make_ffmpeg(const JsonConf& conf, int input_index, Error* error_handler,
                                    CyclePublisher& publisher) {
  return std::make_unique<TranscoderCommand>(conf, input_index, error_handler, publisher);
}

std::unique_ptr<AVStreamInfo> make_streaminfo() { return std::make_unique<MediaStreamInfo>(); }

std::unique_ptr<FFmpegRTMPOutput> make_rtmp_output() { return std::make_unique<RtmpOutput>(); }

}  // namespace weir
