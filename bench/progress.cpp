// What a line of a transcoder's standard error costs.

#include <benchmark/benchmark.h>

#include <string>

#include "backend/stream/runtime/progress_pattern.h"
#include "backend/stream/runtime/stream_stats.h"

namespace {

std::string repeated(const std::string& part, std::size_t size) {
  std::string text;
  while (text.size() < size) text += part;
  return text;
}

void update(benchmark::State& state, const std::string& line) {
  weir::StreamStats stats;
  for (auto _ : state) benchmark::DoNotOptimize(stats.update(line));
}

const std::string progress =
    "frame= 1234 fps= 25 q=28.0 size=   10240kB time=00:00:49.36 bitrate=1699.5kbits/s speed=1.01x    \n";
const std::string other = "[hls @ 0x55d0c0a1b2c0] Opening '/srv/hls/12/playlist_0_1234.ts' for writing\n";
const std::string description =
    "  Stream #0:0[0x100]: Video: h264 (High) ([27][0][0][0] / 0x001B), yuv420p(progressive), 1280x720, 25 fps\n";

BENCHMARK_CAPTURE(update, progress_line, progress);
BENCHMARK_CAPTURE(update, other_line, other);
BENCHMARK_CAPTURE(update, stream_description, description);
BENCHMARK_CAPTURE(update, hostile_4k, repeated("fps=1 q=1 time=1 bitrate=1 ", 4096));
BENCHMARK_CAPTURE(update, hostile_64k, repeated("fps=1 q=1 time=1 bitrate=1 ", 65536));
BENCHMARK_CAPTURE(update, hostile_64k_overlapping, repeated("time=x", 65500) + " bitrate=1 speed=1");

}  // namespace
