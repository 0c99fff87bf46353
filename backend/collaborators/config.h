#pragma once

#include <string>
#include <vector>

namespace weir {

/// Settings of the backend. Set once at start-up, before the manager's `init`; read everywhere.
struct Config {
  static inline std::string STREAM_DIRECTORY = "weir-data/streams";
  static inline std::string HLS_DIRECTORY = "weir-data/hls";
  static inline std::string MMCB_DIRECTORY = "weir-data/mmcb";
  static inline std::string UPLOAD_DIRECTORY = "weir-data/uploads";
  static inline std::string PROFILE_DIRECTORY = "weir-data/profiles";

  /// Filters of documents read files below these directories only; below UPLOAD_DIRECTORY where there are none.
  static inline std::vector<std::string> FILE_ROOTS;

  /// The default band of a stream's speed, in multiples of real time.
  static inline double STREAM_SPEED_MIN = 0.9;
  static inline double STREAM_SPEED_MAX = 1.2;

  /// The version, with the hardware that the server was started for: "0.2.0+nvenc". "qsv" or "nvenc" in it change the
  /// transcoders' environment.
  static std::string VERSION;

  /// The transcoder and the probe: names looked up in PATH, or paths.
  static inline std::string FFMPEG = "ffmpeg";
  static inline std::string FFPROBE = "ffprobe";

  /// The port on which the server publishes HLS files.
  static inline int HTTP_PORT = 8080;
  /// "https" when that port answers by TLS.
  static inline std::string HTTP_SCHEME = "http";

  /// Seconds for which viewers of an "http" output are held while no transcoder sends to it.
  static inline double HTTP_OUTPUT_HOLD = 30;

  /// Seconds between two streams that the server starts again when it starts.
  static inline double RESTORE_INTERVAL = 3;

  /// Seconds after which a probe of an input gives up.
  static inline double PROBE_TIMEOUT = 10;
};

}  // namespace weir
