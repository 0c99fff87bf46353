#include "weir/server.h"

#include <fmt/core.h>
#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <system_error>
#include <vector>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/journal.h"
#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/loop.h"
#include "backend/platform/processor_time.h"
#include "backend/platform/sleep.h"
#include "backend/services/publishing/announced_command.h"
#include "backend/services/transcoder/input/input_probe.h"
#include "backend/stream/manager/launch_pacing.h"
#include "weir/data_directory.h"

namespace weir {

namespace {

// How long the server waits for responses under way when it ends.
constexpr std::chrono::seconds shutdown_grace{2};

void log_failure(std::string_view task, const std::exception_ptr& failure) {
  log(LogLevel::error, "Weir", format_traceback(failure, task));
}

// Lines of a crash loop are counted, and said once a minute.
Async<> report_repetitions() {
  for (;;) {
    co_await sleep(std::chrono::seconds(10));
    report_repeated_lines();
  }
}

double look_at_processors() {
  static IdleProcessors processors;
  return processors.look();
}

Async<Value> probe(Value input) {
  Value found = co_await probe_input_member(std::move(input));
  if (is_set(member(found, "error"))) throw ValueError(to_text(member(found, "error")));
  co_return found;
}

WebSettings make_web_settings(const ServerSettings& settings) {
  return {.viewers = {.total = settings.max_viewers,
                      .per_stream = settings.max_viewers_per_stream,
                      .per_address = settings.max_viewers_per_address},
          .trusted_proxies = {settings.trusted_proxies.begin(), settings.trusted_proxies.end()},
          .webhooks = {.file = join_path(settings.data, "webhooks.json"),
                       .settings_file = settings.webhooks,
                       .private_addresses = settings.webhook_private_addresses},
          .links_directory = settings.data,
          .access = {.data = settings.data,
                     .open_to_network = !is_loopback_address(settings.bind),
                     .public_urls = settings.public_urls}};
}

}  // namespace

Server::Server(const ServerSettings& settings)
    : signals_({SIGTERM, SIGINT}),
      services_(settings.gpu_patch_library, windows_),
      history_(join_path(settings.data, "journal.db"),
               {.entries_per_stream = settings.history_entries, .age = std::chrono::days(settings.history_days)}),
      web_(manager_, services_.profiles(), windows_, history_, probe, make_web_settings(settings)),
      stream_logs_(manager_, {.directory = settings.stream_log_dir,
                              .max_bytes = std::uint64_t{settings.stream_log_mebibytes} << 20,
                              .old_files = static_cast<int>(settings.stream_log_files)}),
      hastens_launches_(!settings.restore_interval) {
  Loop::current().on_unhandled_failure(log_failure);
  siblings().ffmpeg = announce_launches(std::move(siblings().ffmpeg),
                                        [this](const JsonConf& conf) { web_.http_outputs().prepare_run(conf); });
  load_profiles();
  listen(settings);
}

void Server::load_profiles() {
  try {
    services_.load_profiles();
  } catch (const std::system_error& failure) {
    throw StartFailure(fmt::format("The profiles can't be read: {}", failure.what()));
  }
}

void Server::listen(const ServerSettings& settings) {
  if (web_.access().lacks_users())
    throw StartFailure(
        fmt::format("--bind {}: other machines reach this address, and there is no user who could log in. Add one "
                    "first: weir user add NAME --role admin --data {}",
                    settings.bind, settings.data));
  const bool by_tls = !settings.tls_certificate.empty();
  const auto knows_host = [this](const Request& request) { return web_.access().hosts().has(request); };
  try {
    if (by_tls) web_.server().use_tls(settings.tls_certificate, settings.tls_key, knows_host);
    web_.server().listen(settings.bind, settings.port);
  } catch (const std::exception& failure) {
    throw StartFailure(failure.what());
  }
  Config::HTTP_PORT = web_.server().port();
  if (by_tls) Config::HTTP_SCHEME = "https";
  const bool v6 = settings.bind.find(':') != std::string::npos;
  log(LogLevel::info, "Weir",
      fmt::format("Listening on {}://{}:{}", Config::HTTP_SCHEME, v6 ? "[" + settings.bind + "]" : settings.bind,
                  Config::HTTP_PORT));
}

int Server::run() {
  const Task task = spawn("server", serve());
  Loop::current().run();
  return exit_status_;
}

Async<> Server::serve() {
  co_await history_.start();
  const bool started = co_await start_streams();
  if (started) {
    // Who has connected meanwhile gets an answer now: players that were refused would show an error.
    web_.server().start();
    web_.set_ready(true);
    const Task retries = spawn("missing streams", manager_.retry_missing_streams());
    const Task repetitions = spawn("repeated log lines", report_repetitions());
    const Task cleaner = spawn("hls windows", web_.clean_up());
    const Task sampler = spawn("sampler", web_.sample());
    const Task logs = spawn("stream logs", stream_logs_.run());
    Task launches;
    if (hastens_launches_) launches = spawn("launches", hasten_launches(manager_.all_streams(), look_at_processors));
    const int signal = co_await signals_.next();
    journal().record({.text = fmt::format("Ending because of signal {}", signal)});
    retries.kill();
    cleaner.kill();
    sampler.kill();
    repetitions.kill();
    logs.kill();
    launches.kill();
  }
  exit_status_ = started ? 0 : 1;
  const Task force_exit = spawn("second signal", force_exit_at_signal());
  co_await end();
  force_exit.kill();
  Loop::current().stop();
}

Async<bool> Server::start_streams() {
  try {
    windows_.adopt();
    const bool loaded = co_await manager_.init();
    journal().record({.text = fmt::format("Started with {} streams", manager_.streams.size())});
    failed_streams_.resume(history_.open_failures());
    if (manager_.nothing_could_be_loaded())
      log(LogLevel::error, "Weir", "No stream can be loaded: the server does not start");
    co_return loaded && !manager_.nothing_could_be_loaded();
  } catch (const std::exception&) {
    log(LogLevel::error, "Weir", format_traceback(std::current_exception()));
    co_return false;
  }
}

// From now on no file changes: the next start finds every stream as it was.
Async<> Server::end() {
  JsonConf::freeze_all(true);
  web_.set_ready(false);
  co_await web_.server().stop(shutdown_grace);
  co_await manager_.stop_thread();
  failed_streams_.stop();
  std::vector<Task> tasks;
  for (const auto& [id, stream] : manager_.streams) tasks.push_back(stream->thread);
  kill_all(tasks);
  for (const Task& task : tasks) co_await task.wait();
  co_await stream_logs_.flush();
  log(LogLevel::info, "Weir", "Every transcoder has ended");
  co_await history_.close();
}

// The transcoders die with the process.
Async<> Server::force_exit_at_signal() {
  const int signal = co_await signals_.next();
  ::_exit(128 + signal);
}

}  // namespace weir
