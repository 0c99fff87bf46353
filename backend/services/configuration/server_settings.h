#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/base/log.h"
#include "backend/services/configuration/user_command.h"

namespace weir {

/// What the server is started with. Of the sources that name a setting the first counts: the command line, the
/// environment (WEIR_…), the configuration file, the default here.
struct ServerSettings {
  std::string data = "./weir-data";  ///< the data directory
  std::string bind = "127.0.0.1";    ///< the address to listen on
  int port = 8080;                   ///< 0 lets the system choose a free one
  std::string tls_certificate;       ///< PEM files; empty: plain HTTP
  std::string tls_key;
  std::string ffmpeg = "ffmpeg";    ///< looked up in PATH when it holds no slash
  std::string ffprobe = "ffprobe";  ///< the same
  double probe_timeout = 10;        ///< seconds
  /// Seconds between two streams that are started again when the server starts; nothing: as early as possible.
  std::optional<double> restore_interval = 3;
  double http_output_hold = 30;  ///< seconds
  std::size_t max_viewers = 0;   ///< of all streams; 0: no limit
  std::size_t max_viewers_per_stream = 0;
  std::size_t max_viewers_per_address = 0;
  std::size_t history_entries = 2000;  ///< of each stream
  std::size_t history_days = 90;
  std::vector<std::string> public_urls;      ///< under which the server is reached: "https://weir.example"
  std::vector<std::string> trusted_proxies;  ///< addresses whose X-Forwarded-For header names the client
  std::vector<std::string> hardware;         ///< "nvenc", "qsv": what the transcoders' environment is prepared for
  std::vector<std::string> file_roots;       ///< where filters of documents may read files; empty: the upload directory
  std::string gpu_patch_library;             ///< LD_PRELOAD of the transcoders with "nvenc"
  std::string webhooks;                      ///< a JSON file with a list of them; empty: none but those of the API
  bool webhook_private_addresses = false;    ///< whether receivers of webhooks may have private addresses
  std::string stream_log_dir;                ///< where the streams' logs are written as well; empty: nowhere
  std::size_t stream_log_mebibytes = 10;     ///< of one file
  std::size_t stream_log_files = 3;          ///< older ones that are kept of a stream
  LogLevel log_level = LogLevel::info;
  LogFormat log_format = LogFormat::text;
  bool assertions = true;
};

/// Whether only this machine reaches the address.
bool is_loopback_address(const std::string& address);

/// A setting that cannot be used; the message names its source, the value and what is expected.
struct SettingsError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What a command line asks for.
struct Invocation {
  std::optional<ServerSettings> serve;    ///< run the server
  std::string output = {};                ///< otherwise: a text to print, such as the help
  std::optional<UserCommand> users = {};  ///< otherwise: change or list who may use it
};

/// The value of an environment variable, null when it is not set: `getenv`.
using EnvironmentVariable = std::function<const char*(const char* name)>;

/// Reads the command line ("serve --port 9000"), the environment and the configuration file that one of them names.
/// Throws `SettingsError`.
Invocation read_settings(const std::vector<std::string>& arguments, const EnvironmentVariable& variable);

}  // namespace weir
