#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/base/log.h"

namespace weir {

/// What the server is started with. Each setting is taken from the strongest source that names it: the command line,
/// then the environment (WEIR_…), then the configuration file, then the default here.
struct ServerSettings {
  std::string data = "./weir-data";  ///< the data directory
  std::string bind = "127.0.0.1";    ///< the address to listen on; a loopback address
  int port = 8080;                   ///< 0 lets the system choose a free one
  std::string ffmpeg = "ffmpeg";     ///< looked up in PATH when it holds no slash
  std::string ffprobe = "ffprobe";
  double probe_timeout = 10;      ///< seconds
  std::string gpu_patch_library;  ///< LD_PRELOAD of the transcoders of an "nvenc" build
  LogLevel log_level = LogLevel::info;
  bool assertions = true;
};

/// A setting that cannot be used; the message names the option, its value and where it came from.
struct SettingsError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What a command line asks for.
struct Invocation {
  std::optional<ServerSettings> serve;  ///< run the server
  std::string output;                   ///< otherwise: a text to print, such as the help
};

/// Reads the command line ("weir serve --port 9000"), `environment` ("NAME=value" texts) and the configuration file
/// that one of them names. Throws `SettingsError`.
Invocation read_settings(const std::vector<std::string>& arguments, const std::vector<std::string>& environment);

}  // namespace weir
