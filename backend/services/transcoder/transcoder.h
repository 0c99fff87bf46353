#pragma once

#include <memory>

#include "backend/collaborators/cycle_publisher.h"
#include "backend/collaborators/ffmpeg.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/collaborators/streaminfo.h"

namespace weir {

/// The transcoder component for `Siblings`: builders of FFmpeg commands and readers of its output.
std::unique_ptr<FFmpeg> make_ffmpeg(const JsonConf& conf, int input_index, Error* error_handler,
                                    CyclePublisher& publisher);
std::unique_ptr<AVStreamInfo> make_streaminfo();
std::unique_ptr<FFmpegRTMPOutput> make_rtmp_output();

}  // namespace weir
