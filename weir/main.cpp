#include <fmt/core.h>
#include <signal.h>
#include <unistd.h>

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
#include "weir/data_directory.h"
#include "weir/memory.h"
#include "weir/server.h"

extern char** environ;

namespace weir {

namespace {

// The server starts all the same: its streams say what they lack, and run once it is there.
void warn_of_missing_program(const std::string& name, const std::string& program) {
  if (!find_program(program))
    log(LogLevel::warning, "Weir", fmt::format("{} can't be run; streams need it (--{})", program, name));
}

void apply(const ServerSettings& settings) {
  set_log_level(settings.log_level);
  enable_assertions(settings.assertions);
  Config::FFMPEG = settings.ffmpeg;
  Config::FFPROBE = settings.ffprobe;
  Config::PROBE_TIMEOUT = settings.probe_timeout;
  warn_of_missing_program("ffmpeg", settings.ffmpeg);
  warn_of_missing_program("ffprobe", settings.ffprobe);
}

int serve(const ServerSettings& settings) {
  keep_freed_memory();
  // A log that nobody reads any more is no reason to end.
  ::signal(SIGPIPE, SIG_IGN);
  apply(settings);
  const DataDirectory data(settings.data);
  data.apply();
  raise_descriptor_limit();
  Loop loop;
  Server server(settings);
  return server.run();
}

std::vector<std::string> environment_texts() {
  std::vector<std::string> texts;
  for (char** variable = environ; *variable; ++variable) texts.emplace_back(*variable);
  return texts;
}

int run(const std::vector<std::string>& arguments) {
  const Invocation invocation = read_settings(arguments, environment_texts());
  if (invocation.serve) return serve(*invocation.serve);
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
