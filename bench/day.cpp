// How long a day of supervision takes on the movable clock: a line of progress a minute, a restart every hour.

#include <benchmark/benchmark.h>

#include "backend/stream/runtime/stream.h"
#include "tests/support/fake_siblings.h"

namespace {

using namespace weir;
using namespace std::chrono_literals;

void live_a_day(benchmark::State& state) {
  for (auto _ : state) {
    test::FakeSiblings world;
    std::filesystem::create_directories(Config::STREAM_DIRECTORY);
    const auto conf = std::make_shared<StreamConfig>(Config::STREAM_DIRECTORY + "/7.conf");
    conf->load_json_conf(Value::parse(R"({"id":7,"label":"Lobby","min_speed":"","max_speed":"","max_sys_mem":"",
        "max_gpu_mem":"","output":{},"input":{"0":{"url":"udp://a"},
        "restart":{"minutes":"30","hours":"*","weekdays":"*"}}})"));
    const auto stream = std::make_shared<Stream>(7, conf);
    world.loop.run(stream->start());
    for (int minute = 1; minute <= 24 * 60; ++minute) {
      world.loop.advance(1min);
      world.child().print(test::progress_line("00:00:" + std::to_string(minute)));
    }
    benchmark::DoNotOptimize(world.children.size());
    world.loop.run(stream->stop());
    world.loop.settle();
  }
}
BENCHMARK(live_a_day)->Unit(benchmark::kMillisecond);

}  // namespace
