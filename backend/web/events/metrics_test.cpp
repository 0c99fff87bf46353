#include <gtest/gtest.h>

#include <cstdio>
#include <limits>

#include "backend/web/events/stream_metrics.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

TEST(MetricsTextTest, FamiliesStandTogetherAndHistogramsAddUp) {
  MetricsText text;
  auto first = text.family("a", MetricsText::Type::gauge, "First.");
  auto second = text.family("b_seconds", MetricsText::Type::histogram, "Second.");
  DurationHistogram histogram;
  for (const std::chrono::microseconds duration : {500us, 501us, 11000000us}) histogram.add(duration);
  second.add(histogram);
  first.add(metric_label("x", "\"\\\n}\xff"), std::numeric_limits<double>::infinity());
  const std::string joined = text.join();
  for (const char* part :
       {"# TYPE a gauge\na{x=\"\\\"\\\\\\n}\uFFFD\"} +Inf\n# HELP b_seconds Second.\n# TYPE b_seconds histogram\n",
        "{le=\"0.0005\"} 1\nb_seconds_bucket{le=\"0.001\"} 2\n",
        "{le=\"10\"} 2\nb_seconds_bucket{le=\"+Inf\"} 3\nb_seconds_sum 11.001001\nb_seconds_count 3\n"})
    EXPECT_NE(joined.find(part), std::string::npos) << joined;
}

class StreamMetricsTest : public test::StreamFixture {
 protected:
  std::string metrics() {
    const auto text = std::make_shared<MetricsText>();
    world.loop.run(add_stream_metrics(text, {stream}, counters, sampler));
    return text->join();
  }
  bool shows(const std::string& sample) { return ("\n" + metrics()).find("\n" + sample + "\n") != std::string::npos; }

  StreamCounters counters;
  StreamManager manager;
  Sampler sampler{manager};
};

TEST_F(StreamMetricsTest, EachStreamShowsItsStateAndItsFigures) {
  EXPECT_TRUE(shows("weir_stream_wanted{stream=\"7\"} 0"));
  EXPECT_EQ(metrics().find("weir_stream_speed_ratio{"), std::string::npos) << "no figures of a stopped stream";
  run_to_first_progress();
  world.child().cpu_time = 2500ms;
  stream->clientinfo->add("index.m3u8", "10.0.0.1", nullptr, 60);
  for (const char* sample :
       {"weir_stream_wanted{stream=\"7\"} 1", "weir_stream_up{stream=\"7\"} 1",
        "weir_stream_output_bytes_per_second{stream=\"7\"} 262150", "weir_stream_input_index{stream=\"7\"} 0",
        "weir_stream_cpu_seconds_total{stream=\"7\"} 2.5", "weir_stream_resident_bytes{stream=\"7\"} 52428800"})
    EXPECT_TRUE(shows(sample)) << sample << "\n" << metrics();
  world.child().exit(1);
  world.loop.settle();
  EXPECT_TRUE(shows("weir_stream_up{stream=\"7\"} 0"));
  EXPECT_EQ(metrics().find("weir_stream_resident_bytes{"), std::string::npos);
}

TEST_F(StreamMetricsTest, AStarvingStreamIsSlowAndOneThatOnlyWritesHlsHasABitRate) {
  manager.streams.emplace(7, stream);
  const Task sampling = spawn("sampler", sampler.run());
  run_to_first_progress();
  stream->stats.bitrate = {};
  for (int i = 0; i < 12; ++i) {
    stream->findings.segment_rates.complete(0, 500'000, now());
    world.loop.advance(4s);
  }
  EXPECT_TRUE(shows("weir_stream_speed_ratio{stream=\"7\"} 0")) << metrics();
  EXPECT_TRUE(shows("weir_stream_output_bytes_per_second{stream=\"7\"} 125000")) << metrics();
  sampling.kill();
  world.loop.settle();
}

TEST_F(StreamMetricsTest, RestartsCountByCauseAndAStopIsNone) {
  const auto tell = [](JournalKind kind, std::optional<Cause> cause, std::optional<double> retry, long long id = 7) {
    journal().record({.kind = kind, .stream_id = id, .cause = cause, .retry_seconds = retry});
  };
  for (int i = 0; i < 2; ++i) {
    tell(JournalKind::launched, {}, {});
    tell(JournalKind::ended, Cause::stalled, 3);
  }
  tell(JournalKind::ended, Cause::no_input, 3);
  tell(JournalKind::ended, Cause::no_input, 3, 8);
  tell(JournalKind::ended, Cause::operator_asked, {});
  EXPECT_TRUE(shows("weir_stream_launches_total{stream=\"7\"} 2"));
  EXPECT_TRUE(shows("weir_stream_restarts_total{stream=\"7\",cause=\"stalled\"} 2"));
  EXPECT_TRUE(shows("weir_stream_restarts_total{stream=\"7\",cause=\"no_input\"} 1"));
  EXPECT_EQ(metrics().find("operator"), std::string::npos);
  tell(JournalKind::deleted, {}, {});
  EXPECT_EQ(metrics().find("weir_stream_restarts_total{"), std::string::npos);
}

}  // namespace
}  // namespace weir
