#include <fmt/core.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/collaborators/exception.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/platform/timeout.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

extern char** environ;

namespace weir {

namespace {

constexpr double delay_between_cycles = 3;
// A process that the transcoder left behind in its own group may keep the pipe open forever.
constexpr std::chrono::seconds max_drain{2};

/// Variables as NAME=value.
using Environment = std::vector<std::string>;

void set_variable(Environment& environment, std::string_view name, std::string_view value) {
  const std::string prefix = fmt::format("{}=", name);
  std::erase_if(environment, [&](const std::string& variable) { return variable.starts_with(prefix); });
  environment.push_back(prefix + std::string(value));
}

Environment transcoder_environment() {
  Environment environment;
  for (char** variable = environ; *variable; ++variable) environment.emplace_back(*variable);
  set_variable(environment, "AV_LOG_FORCE_COLOR", "");
  set_variable(environment, "AV_LOG_FORCE_256COLOR", "");
  if (Config::VERSION.find("qsv") != std::string::npos) {
    set_variable(environment, "LIBVA_DRIVER_NAME", "iHD");
    set_variable(environment, "LIBVA_DRIVERS_PATH", "/opt/intel/mediasdk/lib64");
  }
  if (Config::VERSION.find("nvenc") != std::string::npos) {
    set_variable(environment, "LD_PRELOAD", siblings().nvidia_driver_manager->get_patch_library());
  }
  return environment;
}

// The environment for one task; the same one for all tasks that build an equal one, as it takes some KB.
std::shared_ptr<const Environment> shared_environment() {
  static std::weak_ptr<const Environment> latest;
  auto environment = std::make_shared<const Environment>(transcoder_environment());
  if (auto same = latest.lock(); same && *same == *environment) return same;
  latest = environment;
  return environment;
}

struct NamedMonitor {
  const char* name;
  Async<> (*run)(Stream&);
};

constexpr std::array monitors{
    NamedMonitor{"schedule", schedule_monitor},
    NamedMonitor{"resources", process_monitor},
    NamedMonitor{"progress", progress_monitor},
    NamedMonitor{"timeout", timeout_monitor},
    NamedMonitor{"speed", speed_monitor},
    NamedMonitor{"segments", segment_monitor},
    NamedMonitor{"master playlist", master_playlist_monitor},
};

// A variable that has a value for as long as this lives.
template <class T>
struct SetWhile {
  SetWhile(T& variable, T value) : variable(variable) { variable = value; }
  ~SetWhile() { variable = T(); }
  SetWhile(const SetWhile&) = delete;
  SetWhile& operator=(const SetWhile&) = delete;
  T& variable;
};

// Reports a monitor's failure on the stream; the monitor ends and the stream runs on. A failure of its set-up is one of
// the task.
Async<> run_guarded(std::shared_ptr<Stream> stream, Async<> (*monitor)(Stream&)) {
  Async<> body = monitor(*stream);
  try {
    co_await body;
  } catch (const GreenletRestartException&) {
  } catch (const GreenletStopException&) {
  } catch (const std::exception&) {
    stream->error(format_traceback(std::current_exception()));
  }
}

}  // namespace

Async<> Stream::supervise(std::shared_ptr<Stream> self) { co_await self->run(); }

// Runs cycles until one ends the loop. A failure of the environment or of a clean-up ends the task.
Async<> Stream::run() {
  std::exception_ptr leaving;
  std::optional<std::string> failure;
  try {
    const std::shared_ptr<const Environment> environment = shared_environment();
    set_status("starting");
    co_await run_cycles(environment);
  } catch (const std::exception& raised) {
    failure = raised.what();
  } catch (...) {
    leaving = std::current_exception();
  }
  set_status("stopped");
  if (failure) tell_failed(*failure);
  if (leaving) std::rethrow_exception(leaving);
}

Async<> Stream::run_cycles(std::shared_ptr<const Environment> environment) {
  bool stopped = false;
  while (!stopped) {
    const long long last_cycle = cycle.number;
    std::exception_ptr leaving;
    Reason reason{.cause = Cause::exited};
    try {
      reason = co_await run_transcoder(environment);
    } catch (const GreenletRestartException&) {
      reason = take_reason();
    } catch (const NoSuchProcess&) {
    } catch (const GreenletStopException&) {
      reason = take_reason();
      stopped = true;
    } catch (const std::exception& failure) {
      error(format_traceback(std::current_exception()));
      reason = {.cause = cycle.launched ? Cause::failed : Cause::not_launched, .text = failure.what()};
    } catch (...) {
      reason = {.cause = Cause::server_end};
      leaving = std::current_exception();
    }
    const bool goes_on = !stopped && !leaving;
    JournalEntry end = make_end(reason);
    co_await clean_up_cycle();
    // One that was ended before its launch was due is no cycle.
    if (cycle.number != last_cycle) {
      tell_ended(std::move(end), goes_on);
    } else if (goes_on && reason.cause == Cause::operator_asked) {
      tell_launched_early(reason);
    }
    cleanup_dirs();
    set_status("restarting");
    if (leaving) std::rethrow_exception(leaving);
    if (stopped) tell_stopped(reason, cycle.number != last_cycle ? last_end->on_air_seconds : std::nullopt);
  }
}

// One cycle: launches the transcoder and waits for its end, of which the reason is given.
Async<Reason> Stream::run_transcoder(std::shared_ptr<const Environment> environment) {
  co_await sleep_until_launch();
  {
    const auto guard = co_await lock.acquire();
    delay = delay_between_cycles;
    cycle = {.number = cycle.number + 1, .input = input_next};
    ffmpeg = siblings().ffmpeg(*conf, input_next, this);
  }
  const bool generated = co_await ffmpeg->generate_command(true);
  for (InputAnswer& answer : std::exchange(ffmpeg->input_answers, {})) note_input(std::move(answer));
  if (!generated) {
    error(get_error_msg());
    const Cause cause = ffmpeg->no_input_answers ? Cause::no_input : Cause::not_launched;
    co_return Reason{.cause = cause, .text = get_error_msg()};
  }
  co_await launch(environment);
  co_await proc->wait();
  co_return Reason{.cause = Cause::exited};
}

Async<> Stream::sleep_until_launch() {
  SleepWait wait = sleep_seconds(delay);
  const SetWhile<SleepWait*> known(launch_delay_, &wait);
  const SetWhile<std::optional<TimePoint>> announced(
      next_launch, now() + std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(delay)));
  co_await wait;
}

bool Stream::awaits_launch() const noexcept { return launch_delay_ != nullptr; }

void Stream::launch_now() noexcept {
  if (launch_delay_) launch_delay_->wake();
}

Async<> Stream::launch(std::shared_ptr<const Environment> environment) {
  const auto guard = co_await lock.acquire();
  input_next = 0;
  // Nothing asks for the command any more, which takes some KB.
  SpawnOptions options{.command = std::move(ffmpeg->command), .environment = *environment};
  options.before_exec = preexec_fn;
  proc = siblings().spawn_child(options);
  stderr_lines.reset(new LineReader(readline2(proc->stderr_fd())));
  procinfo = siblings().process_info(proc->pid());
  tell_launched();
  stdbuf.mark_cycle(cycle.number);
  streaminfo->follow_outputs(*conf, std::move(ffmpeg->receivers));
  spawn_monitors();
}

void Stream::spawn_monitors() {
  for (const NamedMonitor& monitor : monitors) {
    spawns.push_back(
        spawn(fmt::format("{} of stream {}", monitor.name, id), run_guarded(shared_from_this(), monitor.run)));
  }
}

Async<> Stream::clean_up_cycle() {
  const KillShield shield;
  const auto guard = co_await lock.acquire();
  kill_all(spawns);
  if (proc) co_await end_transcoder();
  ffmpeg->cleanup();
  co_await clientinfo->cleanup();
  // A monitor ends at its next wait; what it reads is replaced after that.
  for (const Task& monitor : spawns) co_await monitor.wait();
  spawns.clear();
  stderr_lines = nullptr;
  proc = nullptr;
  procinfo = nullptr;
  stats = {};
  findings = {};
  streaminfo = siblings().streaminfo();
  clientinfo = std::make_unique<StreamClientInfo>(*conf);
}

// The group is killed also when the transcoder has ended by itself, for what it may have started; until the transcoder
// is reaped the group's id cannot mean another one.
Async<> Stream::end_transcoder() {
  proc->signal_group(SIGKILL);
  cycle.exit_status = co_await proc->wait();
  proc->reap();
  if (stderr_lines) co_await drain_for_a_while();
}

Async<> Stream::drain_for_a_while() {
  std::string failure;
  try {
    co_await run_at_most("log of " + get_class_name(), drain_stderr(shared_from_this()), max_drain);
  } catch (const std::exception&) {
    failure = format_traceback(std::current_exception());
  }
  if (!failure.empty()) error(failure);
}

Async<> Stream::drain_stderr(std::shared_ptr<Stream> self) {
  while (auto line = co_await self->stderr_lines->next()) {
    if (self->stats.update(*line)) continue;
    self->cycle.look(*line);
    self->stdbuf.write(*line);
  }
}

}  // namespace weir
