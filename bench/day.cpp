// How long a day of supervision takes on the movable clock: the scenario of tests/scenario.

#include <benchmark/benchmark.h>

#include "tests/scenario/day.h"

namespace {

void live_a_day(benchmark::State& state) {
  for (auto _ : state) {
    weir::test::Day day;
    day.live();
    benchmark::DoNotOptimize(day.journal);
  }
}
BENCHMARK(live_a_day)->Unit(benchmark::kMillisecond);

}  // namespace
