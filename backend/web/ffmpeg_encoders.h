#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/async.h"
#include "backend/platform/semaphore.h"
#include "backend/web/ffmpeg_version.h"

namespace weir {

struct FfmpegEncoder {
  std::string name;
  std::string_view media;  ///< "video", "audio" or "subtitle"
  std::string description;

  bool operator==(const FfmpegEncoder&) const = default;
};

/// The encoders in what `ffmpeg -encoders` prints. Lines that don't describe one are left out.
std::vector<FfmpegEncoder> parse_encoders(std::string_view text);

/// The encoders of the installed FFmpeg. They are asked for again when another version is installed.
class FfmpegEncoders {
 public:
  /// The version outlives this.
  explicit FfmpegEncoders(FfmpegVersion& version) : version_(version) {}

  /// Empty when FFmpeg can't be run.
  Async<std::vector<FfmpegEncoder>> get();

 private:
  static Async<std::vector<FfmpegEncoder>> ask();

  FfmpegVersion& version_;
  Semaphore turns_{1};
  std::string known_version_;
  std::vector<FfmpegEncoder> encoders_;
};

}  // namespace weir
