// What the list of all running streams costs: the time in which GET /api/streams is built and serialised, without the
// connection; the part of it that the system takes for the figures of their processes; and for how long at a stretch
// the loop is held up, with nothing asked and while lists are made.
//
//     bench_list TRANSCODER [STREAMS]

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <vector>

#include "backend/collaborators/config.h"
#include "backend/collaborators/log.h"
#include "backend/platform/child_process.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/web/web_application.h"
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

void write_stream_files(int streams) {
  for (int i = 0; i < streams; ++i) {
    std::ofstream(fmt::format("{}/{}.conf", Config::STREAM_DIRECTORY, i))
        << fmt::format(R"({{"label":"Channel {}","status":"stopped","input":{{"0":{{"url":"udp://127.0.0.1:{}"}}}},)"
                       R"("output":{{"0":{{"protocol":"hls","playlist_name":"index.m3u8"}}}}}})",
                       i, 20000 + i);
  }
}

/// The longest time for which a task that is always ready didn't get its turn.
struct Pulse {
  double longest = 0;

  static Async<> beat(Pulse& pulse) {
    for (;;) {
      const auto begin = BenchClock::now();
      co_await yield_to_others();
      pulse.longest = std::max(pulse.longest, milliseconds_since(begin));
    }
  }
};

using Measurement = std::function<Async<std::size_t>()>;

Async<std::size_t> make_list(const WebApplication& web) {
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
  Pulse pulse;
  const Task beat = spawn("pulse", Pulse::beat(pulse));
  const auto begin = BenchClock::now();
  while (milliseconds_since(begin) < 2000) co_await operation();
  co_await beat.kill_and_wait();
  fmt::print("{:<24} {:5.1f} ms\n", name, pulse.longest);
}

// Figures of streams that are not on the air would be no figures.
void check_that_all_run(const StreamManager& manager) {
  for (const auto& [id, stream] : manager.streams) {
    if (stream->get_status() == "running" && stream->stats.fps.value > 0) continue;
    fmt::print(stderr, "stream {} doesn't run\n", id);
    std::exit(1);
  }
}

Async<> start_all(StreamManager& manager) {
  co_await manager.init();
  for (const auto& [id, stream] : manager.streams) {
    co_await manager.start_stream(id);
    manager.add_stream_client_info(id, "index.m3u8", "192.0.2.7", nullptr, 3600);
  }
  co_await sleep(8s);
  check_that_all_run(manager);
}

Async<> run(StreamManager& manager, const WebApplication& web) {
  co_await start_all(manager);
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
  weir::write_stream_files(argc > 2 ? std::atoi(argv[2]) : 1000);
  weir::Loop loop;
  weir::Services services("");
  weir::StreamManager manager;
  weir::WebApplication web(manager, services.profile_access(), {});
  web.set_ready(true);
  const weir::Task task = weir::spawn("bench", weir::run(manager, web));
  loop.run();
}
