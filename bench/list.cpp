// What the list of all running streams costs: the time in which GET /api/streams is built and serialised, without the
// connection; the part of it that the system takes for the figures of their processes; and for how long at a stretch
// the loop is held up, with nothing asked and while lists are made.
//
//     bench_list TRANSCODER [STREAMS]

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "backend/base/log.h"
#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/services/journal/journal_history.h"
#include "backend/web/web_application.h"
#include "bench/stream_files.h"
#include "tests/support/temporary_directory.h"
#include "weir/data_directory.h"
#include "weir/memory.h"
#include "weir/services.h"

namespace weir {

namespace {

using BenchClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double milliseconds_since(BenchClock::time_point begin) {
  return std::chrono::duration<double, std::milli>(BenchClock::now() - begin).count();
}

/// Keeps the longest wait of a task that is always ready.
Async<> watch_turns(std::shared_ptr<double> max_wait) {
  for (;;) {
    const auto begin = BenchClock::now();
    co_await yield_to_others();
    *max_wait = std::max(*max_wait, milliseconds_since(begin));
  }
}

using Measurement = std::function<Async<std::size_t>()>;

Async<std::size_t> make_list(WebApplication& web) {
  Request request;
  request.method = "GET";
  request.target = *parse_target("/api/streams");
  request.host = "127.0.0.1:8080";
  const Response response = co_await web.answer(request);
  co_return response.body.size();
}

Async<std::size_t> read_figures(const StreamManager& manager) {
  for (const auto& [id, stream] : manager.streams) {
    stream->procinfo->cpu_percent();
    stream->procinfo->memory_info();
  }
  co_return 0;
}

Async<> measure(const char* name, std::chrono::milliseconds pause, const Measurement& operation) {
  constexpr int rounds = 100;
  std::vector<double> times;
  std::size_t bytes = 0;
  for (int i = 0; i < rounds; ++i) {
    co_await sleep(pause);
    const auto begin = BenchClock::now();
    bytes = co_await operation();
    times.push_back(milliseconds_since(begin));
  }
  std::ranges::sort(times);
  fmt::print("{:<24} {:5.1f} ms median  {:5.1f} ms best  {:5.1f} ms worst  {:4} KB\n", name, times[rounds / 2],
             times.front(), times.back(), bytes / 1000);
}

Async<> measure_hold(const char* name, const Measurement& operation) {
  const auto max_wait = std::make_shared<double>(0);
  const Task watch = spawn("watch", watch_turns(max_wait));
  const auto begin = BenchClock::now();
  while (milliseconds_since(begin) < 2000) co_await operation();
  co_await watch.kill_and_wait();
  fmt::print("{:<24} {:5.1f} ms\n", name, *max_wait);
}

// Streams that do not run would make the figures meaningless.
void check_that_all_run(const StreamManager& manager) {
  for (const auto& [id, stream] : manager.streams) {
    if (stream->get_status() != "running" || stream->stats.fps.value <= 0)
      throw std::runtime_error(fmt::format("stream {} doesn't run", id));
  }
}

Async<> start_all(StreamManager& manager, std::size_t streams) {
  const bool loaded = co_await manager.init();
  if (!loaded || manager.streams.size() != streams) throw std::runtime_error("the streams can't be loaded");
  for (const auto& [id, stream] : manager.streams) {
    const bool started = co_await manager.start_stream(id);
    if (!started) throw std::runtime_error(manager.get_error_msg());
    manager.add_stream_client_info(id, "index.m3u8", "192.0.2.7", nullptr, 3600);
  }
  co_await sleep(8s);
  check_that_all_run(manager);
}

Async<> measure_all(StreamManager& manager, WebApplication& web, std::size_t streams) {
  co_await start_all(manager, streams);
  const Measurement list = [&web] { return make_list(web); };
  const Measurement figures = [&manager] { return read_figures(manager); };
  const Measurement nothing = []() -> Async<std::size_t> {
    co_await yield_to_others();
    co_return 0;
  };
  co_await measure("list, one by one", 0ms, list);
  co_await measure("list, every 100 ms", 100ms, list);
  co_await measure("figures, one by one", 0ms, figures);
  co_await measure("figures, every 100 ms", 100ms, figures);
  co_await measure_hold("longest hold, idle", nothing);
  co_await measure_hold("longest hold, lists", list);
}

Async<> run(StreamManager& manager, WebApplication& web, std::size_t streams, int& exit_code) {
  try {
    co_await measure_all(manager, web, streams);
    exit_code = 0;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "{}\n", failure.what());
  }
  Loop::current().stop();
}

}  // namespace

}  // namespace weir

int main(int argc, char** argv) {
  if (argc < 2) {
    fmt::print(stderr, "usage: {} TRANSCODER [STREAMS]\n", argv[0]);
    return 2;
  }
  weir::set_log_level(weir::LogLevel::error);
  weir::Config::FFMPEG = argv[1];
  const weir::test::TemporaryDirectory data;
  const weir::DataDirectory directory(data.path());
  directory.apply();
  weir::keep_freed_memory();
  weir::raise_descriptor_limit();
  const int streams = argc > 2 ? std::atoi(argv[2]) : 1000;
  write_stream_files(weir::Config::STREAM_DIRECTORY, streams);
  weir::Loop loop;
  weir::HlsWindows windows;
  weir::Services services("", windows);
  weir::ServerStreamManager manager;
  weir::JournalHistory history(data.path() / "journal.db", {});
  weir::WebApplication web(manager, services.profiles(), windows, history, {});
  web.set_ready(true);
  int exit_code = 1;
  const weir::Task task = weir::spawn("bench", weir::run(manager, web, static_cast<std::size_t>(streams), exit_code));
  loop.run();
  return exit_code;
}
