#include "weir/server.h"

#include <fmt/core.h>
#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <system_error>
#include <vector>

#include "backend/collaborators/config.h"
#include "backend/collaborators/log.h"
#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"
#include "backend/platform/process_info.h"
#include "backend/services/graphics/nvml_source.h"
#include "backend/services/profiles/document_profile.h"
#include "backend/services/transcoder/input_probe.h"
#include "backend/services/transcoder/transcoder.h"
#include "weir/data_directory.h"

namespace weir {

namespace {

// An answer under way may take this long when the server ends.
constexpr std::chrono::seconds longest_farewell{2};

void log_failure(std::string_view task, const std::exception_ptr& failure) {
  log(LogLevel::error, "Weir", format_traceback(failure, task));
}

Async<Value> probe(std::string url) {
  Value found = co_await probe_url(std::move(url));
  if (is_set(member(found, "error"))) throw ValueError(to_text(member(found, "error")));
  co_return found;
}

ProfileAccess access(ProfileStore& store) {
  return {.list = [&store] { return store.list(); },
          .read = [&store](long long id) { return store.read(id); },
          .add = [&store](const Value& form) { return store.add(form); },
          .change = [&store](long long id, const Value& form) { return store.change(id, form); },
          .remove = [&store](long long id) { return store.remove(id); },
          .path = [&store](long long id) { return store.path(id); },
          .error = [&store] { return store.get_error_msg(); }};
}

}  // namespace

Server::Server(const ServerSettings& settings)
    : signals_({SIGTERM, SIGINT}),
      profiles_(Config::PROFILE_DIRECTORY),
      gpu_driver_(settings.gpu_patch_library),
      gpu_figures_(NvmlSource::open()),
      web_(manager_, access(profiles_), probe) {
  Loop::current().on_unhandled_failure(log_failure);
  connect_siblings();
  load_profiles();
  listen(settings);
}

void Server::connect_siblings() {
  Siblings& all = siblings();
  all.ffmpeg = make_ffmpeg;
  all.streaminfo = make_streaminfo;
  all.rtmp_output = make_rtmp_output;
  all.profile_description = [](const JsonConf& conf) -> std::unique_ptr<ProfileDescription> {
    return std::make_unique<DocumentProfile>(conf);
  };
  all.profile_manager = &profiles_;
  all.nginx_manager = &publishing_;
  all.nvidia_driver_manager = &gpu_driver_;
  all.nvidia_process_manager = &gpu_figures_;
  all.spawn_child = spawn_child;
  all.process_info = [](pid_t pid) -> std::unique_ptr<ProcessInfo> { return std::make_unique<Process>(pid); };
}

void Server::load_profiles() {
  try {
    profiles_.load();
  } catch (const std::system_error& failure) {
    throw StartFailure(fmt::format("The profiles can't be read: {}", failure.what()));
  }
}

void Server::listen(const ServerSettings& settings) {
  try {
    web_.server().listen(settings.bind, settings.port);
  } catch (const std::system_error& failure) {
    throw StartFailure(failure.what());
  }
  Config::HTTP_PORT = web_.server().port();
  const bool v6 = settings.bind.find(':') != std::string::npos;
  log(LogLevel::info, "Weir",
      fmt::format("Listening on http://{}:{}", v6 ? "[" + settings.bind + "]" : settings.bind, Config::HTTP_PORT));
}

int Server::run() {
  const Task task = spawn("server", live());
  Loop::current().run();
  return exit_status_;
}

Async<> Server::live() {
  web_.server().start();
  const bool started = co_await start_streams();
  if (started) {
    web_.set_ready(true);
    const int signal = co_await signals_.next();
    log(LogLevel::info, "Weir", fmt::format("Ending because of signal {}", signal));
  }
  exit_status_ = started ? 0 : 1;
  const Task impatience = spawn("second signal", leave_at_signal(*this));
  co_await end();
  impatience.kill();
  Loop::current().stop();
}

Async<bool> Server::start_streams() {
  try {
    web_.broken_files().examine();
    const bool loaded = co_await manager_.init();
    log(LogLevel::info, "Weir", fmt::format("{} streams are loaded", manager_.streams.size()));
    co_return loaded;
  } catch (const std::exception&) {
    log(LogLevel::error, "Weir", format_traceback(std::current_exception()));
    co_return false;
  }
}

// The files keep what they hold from now on, so that the next start finds every stream as it was.
Async<> Server::end() {
  JsonConf::freeze_all(true);
  web_.set_ready(false);
  co_await web_.server().stop(longest_farewell);
  co_await manager_.stop_thread();
  std::vector<Task> tasks;
  for (const auto& [id, stream] : manager_.streams) tasks.push_back(stream->thread);
  kill_all(tasks);
  for (const Task& task : tasks) co_await task.wait();
  log(LogLevel::info, "Weir", "Every transcoder has ended");
}

// The transcoders die with the process.
Async<> Server::leave_at_signal(Server& server) {
  const int signal = co_await server.signals_.next();
  ::_exit(128 + signal);
}

}  // namespace weir
