#include "backend/stream/runtime/stream_stats.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "backend/platform/failure.h"
#include "backend/stream/runtime/progress_pattern.h"

namespace weir {
namespace {

using Figures = std::tuple<double, double, double, long long, double>;  // fps, quality, bitrate, time, speed

Figures figures_of(const StreamStats& stats) {
  return {stats.fps.value, stats.quality, stats.bitrate.value, stats.time, stats.speed.value};
}

TEST(StreamStatsTest, TakesTheFiguresOfAProgressLine) {
  // What the figures were before.
  const Figures before{50, 20, 100, 7, 3};
  const std::tuple<const char*, bool, Figures> cases[] = {
      {"frame=  1 fps= 25 q=28.0 size= 9kB time=00:00:04.00 bitrate=2097.2kbits/s speed=1.00x\n",
       true,
       {25, 28, 2097.2, 4, 1}},
      {"size=    1024kB time=00:01:04.57 bitrate= 128.0kbits/s speed=2.5x", true, {0, -1, 128, 64, 2.5}},
      {"frame=0 fps=0.0 q=0.0 size=0kB time=N/A bitrate=N/A speed=N/A", true, {0, 0, 100, 7, 3}},
      {"fps=0.0 q=0.0 x time=-01:00:00.00 bitrate=  -0.0kbits/s speed=N/A", false, {0, 0, -0.0, 0, 3}},
      {"time=00:04 bitrate=1.0kbits/s speed=1x", false, {0, -1, 100, 7, 3}},
      {"time=01:00:00.99 bitrate=1.0kbits/s speed=x", false, {0, -1, 1, 3600, 3}},
      {"fps=fast q=2 x time=00:00:01 bitrate=1.0kbits/s speed=1x", false, {50, 20, 100, 7, 3}},
      {"time=99999999999999999999:00:00 bitrate=1.0kbits/s speed=1x", false, {0, -1, 100, 7, 3}},
      {"time=00:00:nan bitrate=1.0kbits/s speed=1x", false, {0, -1, 100, 7, 3}},
      {"  Stream #0:0: Video: h264, 25 fps, q=2-31, 200 kb/s", false, before},
      {"", false, before},
  };
  for (const auto& [line, taken, figures] : cases) {
    StreamStats stats;
    std::tie(stats.fps.value, stats.quality, stats.bitrate.value, stats.time, stats.speed.value) = before;
    EXPECT_EQ(stats.update(line), taken) << line;
    EXPECT_EQ(figures_of(stats), figures) << line;
  }
}

TEST(StreamStatsTest, RaisesBeyondTheIntegers) {
  StreamStats stats;
  EXPECT_TRUE(stats.update("time=01:00:02.25 bitrate=1.0kbits/s speed=1x"));
  EXPECT_EQ(stats.media_seconds, 3602.25);
  for (const char* time : {"00:00:inf", "5000000000000000:-300000000000000000:0", "0:999999999999999999:0"})
    EXPECT_THROW(stats.update(std::string("time=") + time + " bitrate=1.0kbits/s speed=1x"), OverflowError) << time;
}

/// The five groups of the expression as it is given, by an engine that backtracks: "-" where one is absent; nothing
/// when the line does not match.
std::vector<std::string> backtracked_groups(const std::string& line) {
  static const std::regex expression(
      R"((?:fps=\s*(\S+).+q=\s*(\S+).+)?time=\s*(\S+).+bitrate=\s*(\S+).+speed=\s*(\S+))");
  std::smatch match;
  std::vector<std::string> groups;
  if (!std::regex_search(line, match, expression)) return groups;
  for (int group = 1; group <= 5; ++group) groups.push_back(match[group].matched ? match[group].str() : "-");
  return groups;
}

std::vector<std::string> our_groups(const std::string& line) {
  const auto fields = find_progress(line);
  if (!fields) return {};
  return {std::string(fields->fps.value_or("-")), std::string(fields->quality.value_or("-")), std::string(fields->time),
          std::string(fields->bitrate), std::string(fields->speed)};
}

/// The keys mostly in the order that matches, between pieces that nearly are some.
std::string generated_line(std::mt19937& random) {
  static const std::vector<std::string> fillers{" ",    "1",    "=",  "\t",    "s=",     "q",
                                                "time", "fps=", "q=", "time=", "speed=", "\v"};
  std::string line;
  for (const char* key : {"fps=", "q=", "time=", "bitrate=", "speed=", "\n"}) {
    for (auto count = random() % 5; count > 0; --count) line += fillers[random() % fillers.size()];
    if (random() % 12 != 0) line += key;
  }
  return line;
}

TEST(ProgressPatternTest, AgreesWithABacktrackingEngineOnManyLines) {
  std::mt19937 random(20260719);
  int matches = 0;
  for (int i = 0; i < 20'000; ++i) {
    const std::string line = generated_line(random);
    const std::vector<std::string> expected = backtracked_groups(line);
    matches += !expected.empty();
    ASSERT_EQ(our_groups(line), expected) << "line: [" << line << "]";
  }
  EXPECT_GT(matches, 2'000) << "the generated lines have to exercise matches";
  EXPECT_LT(matches, 18'000) << "and near misses";
}

}  // namespace
}  // namespace weir
