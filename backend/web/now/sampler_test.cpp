#include "backend/web/now/sampler.h"

#include <fmt/core.h>

#include <fstream>
#include <thread>

#include "backend/stream/manager/stream_manager.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

TEST(MeasureSpeedTest, LooksBackThirtySecondsOrAsFarAsTheRunGoes) {
  const auto at = [](int seconds, double media) { return MediaPoint{TimePoint(std::chrono::seconds(seconds)), media}; };
  EXPECT_EQ(measure_speed(std::vector{at(5, 5)}, at(9, 9)), std::nullopt);
  EXPECT_EQ(measure_speed(std::vector{at(4, 4)}, at(9, 9)), 1);
  EXPECT_EQ(measure_speed(std::vector{at(0, 0), at(10, 100), at(20, 105), at(30, 110)}, at(40, 115)), 0.5);
  EXPECT_EQ(measure_speed(std::vector{at(0, 50)}, at(20, 10)), 0);
}

class SamplerTest : public test::StreamFixture {
 protected:
  SamplerTest() {
    manager.streams.emplace(7, stream);
    task = spawn("sampler", sampler.run());
    passes_task = spawn("passes", count_passes(sampler, passes));
    run_to_first_progress();
  }
  ~SamplerTest() override {
    for (const Task* running : {&task, &passes_task}) running->kill();
    world.loop.settle();
  }
  static Async<> count_passes(Sampler& sampler, int& passes) {
    for (;; ++passes) co_await sampler.next();
  }
  /// Seconds pass in which the transcoder transcodes at a speed and uses a quarter of a processor.
  void pass(int seconds, double speed) {
    for (int i = 0; i < seconds; ++i) {
      world.loop.advance(1s);
      world.child().cpu_time += 250ms;
      if (speed > 0) say(test::progress_line(fmt::format("00:00:{:.2f}", media += speed)));
    }
  }
  std::optional<double> latest(Figure figure) const {
    const FigureValues* sample = sampler.find(7);
    return sample ? (*sample)[static_cast<std::size_t>(figure)] : std::nullopt;
  }

  StreamManager manager;
  Sampler sampler{manager};
  Task task;
  Task passes_task;
  int passes = 0;
  double media = 1;
};

TEST_F(SamplerTest, MeasuresWhatFFmpegAveragesAndSaysWhenProgressStops) {
  pass(60, 0.9);
  EXPECT_NEAR(latest(Figure::speed).value(), 0.9, 0.001);
  EXPECT_NEAR(latest(Figure::cpu).value(), 25, 0.01);
  EXPECT_EQ(latest(Figure::bitrate), 2097.2);
  pass(15, 0);
  EXPECT_NEAR(sampler.measure(*stream).speed.value(), 0.9 * 15 / 30, 0.15);
  pass(30, 0);
  EXPECT_EQ(sampler.measure(*stream).speed, 0);
  EXPECT_EQ(sampler.measure(*stream).seconds_without_progress, 45);
  EXPECT_EQ(stream->procinfo->cpu_percent(), 0) << "the figure since the last query is the query's";
}

TEST_F(SamplerTest, LooksEverySecondOnlyWhileSomebodyListens) {
  pass(60, 1);
  EXPECT_EQ(passes, 6);
  {
    const Sampler::FastSeat seat(sampler);
    const Sampler::FastSeat another(sampler);
    world.loop.settle();
    EXPECT_EQ(passes, 7);
    pass(5, 1);
    world.child().cpu_time += 1s;
    pass(15, 1);
    EXPECT_EQ(passes, 27);
  }
  pass(31, 1);
  EXPECT_NEAR(passes, 31, 1);
  const FigureSeries& series = *sampler.find_series(7);
  double cpu = 0;
  for (long long step = sampler.newest_step() - 8; step <= sampler.newest_step(); ++step) {
    EXPECT_EQ(series.at(Figure::fps, step), 25) << step;
    cpu += series.at(Figure::cpu, step).value_or(0);
  }
  EXPECT_NEAR(cpu, 9 * 25 + 10, 1) << "a step has what was used in all of its seconds";
}

TEST_F(SamplerTest, ARunThatEndsLeavesAGapAndTheNextBeginsAnew) {
  pass(40, 1);
  stop();
  world.loop.advance(20s);
  EXPECT_EQ(sampler.find(7), nullptr);
  start();
  world.loop.advance(10s);
  EXPECT_EQ(latest(Figure::cpu), std::nullopt);
  EXPECT_EQ(latest(Figure::speed), std::nullopt);
  const auto has = [&](int back) { return sampler.find_series(7)->at(Figure::memory, sampler.newest_step() - back); };
  EXPECT_TRUE(has(0) && !has(1) && !has(2) && has(3));
  stop();
  world.loop.advance(2h);
  EXPECT_EQ(sampler.find_series(7), nullptr) << "nothing is kept of a stream that does not run";
}

TEST_F(SamplerTest, ABitRateThatFFmpegDoesNotTellIsThatOfTheSegments) {
  stream->stats.bitrate = {};
  for (int i = 0; i < 4; ++i) {
    for (const std::size_t variant : {0u, 1u})
      stream->findings.segment_rates.complete(variant, 500'000 * (variant + 1), now());
    pass(4, 0);
    stream->stats.taken_at = now();
  }
  const Measured measured = sampler.measure(*stream);
  EXPECT_EQ(measured.renditions, (std::vector<std::optional<double>>{1000, 2000}));
  EXPECT_EQ(measured.bitrate, 3000);
  pass(10, 0);
  EXPECT_EQ(sampler.measure(*stream).renditions.front(), std::nullopt) << "segments stopped coming";
}

TEST_F(SamplerTest, ABitRateThatFFmpegDoesNotTellIsTheGrowthOfRecordings) {
  const std::string file = (world.directory.path() / "rec.ts").string();
  stream->ffmpeg->recordings = {file};
  stream->stats.bitrate = {};
  // A thread of its own reads the size at each step.
  const auto pass_half_a_step = [this] {
    world.loop.advance(5s);
    std::this_thread::sleep_for(10ms);
  };
  const auto bitrate = [this] { return sampler.measure(*stream).bitrate.value_or(0); };
  for (std::size_t size = 0; bitrate() == 0 && size < 50; ++size) {
    pass_half_a_step();
    std::ofstream(file) << std::string(size * 125'000, 'x');
    pass_half_a_step();
  }
  EXPECT_NEAR(bitrate(), 150, 60);
}

}  // namespace
}  // namespace weir
