#include <fmt/core.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "backend/base/log.h"
#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"
#include "backend/services/configuration/server_settings.h"
#include "backend/web/api/import.h"
#include "weir/data_directory.h"
#include "weir/memory.h"
#include "weir/server.h"
#include "weir/user_commands.h"

namespace weir {

namespace {

// Only a warning: a program that is installed later is found by the next launch.
void warn_of_missing_program(const std::string& name, const std::string& program) {
  if (!find_program(program))
    log(LogLevel::warning, "Weir",
        fmt::format("{} not found or not executable; streams need it (--{})", program, name));
}

void apply_hardware(const ServerSettings& settings) {
  for (const std::string& hardware : settings.hardware)
    Config::VERSION += (Config::VERSION.find('+') == std::string::npos ? '+' : '.') + hardware;
  log(LogLevel::info, "Weir", "Weir " + Config::VERSION);
  if (!settings.gpu_patch_library.empty() && Config::VERSION.find("nvenc") == std::string::npos)
    log(LogLevel::warning, "Weir", "--gpu-patch-library has no effect without --hardware nvenc");
}

void apply(const ServerSettings& settings) {
  set_log_level(settings.log_level);
  const bool for_journald = settings.log_format == LogFormat::text && is_journald_attached();
  set_log_format(for_journald ? LogFormat::journald : settings.log_format);
  enable_assertions(settings.assertions);
  Config::FFMPEG = settings.ffmpeg;
  Config::FFPROBE = settings.ffprobe;
  Config::PROBE_TIMEOUT = settings.probe_timeout;
  if (settings.restore_interval) Config::RESTORE_INTERVAL = *settings.restore_interval;
  Config::HTTP_OUTPUT_HOLD = settings.http_output_hold;
  apply_hardware(settings);
  Config::FILE_ROOTS = settings.file_roots;
  warn_of_missing_program("ffmpeg", settings.ffmpeg);
  warn_of_missing_program("ffprobe", settings.ffprobe);
}

int serve(const ServerSettings& settings) {
  keep_freed_memory();
  // Survive a closed stderr.
  ::signal(SIGPIPE, SIG_IGN);
  // Some launchers ignore it, which is inherited: the exit status of a child would be lost.
  ::signal(SIGCHLD, SIG_DFL);
  apply(settings);
  const DataDirectory data(settings.data);
  data.apply();
  Import::recover();
  raise_descriptor_limit();
  Loop loop;
  Server server(settings);
  return server.run();
}

int run(const std::vector<std::string>& arguments) {
  const Invocation invocation = read_settings(arguments, ::getenv);
  if (invocation.serve) return serve(*invocation.serve);
  if (invocation.users) return run_user_command(*invocation.users);
  fmt::print("{}", invocation.output);
  return EXIT_SUCCESS;
}

}  // namespace

}  // namespace weir

int main(int argc, char** argv) {
  try {
    return weir::run({argv + 1, argv + argc});
  } catch (const std::exception& failure) {
    fmt::print(stderr, "weir: {}\n", failure.what());
    return EXIT_FAILURE;
  }
}
