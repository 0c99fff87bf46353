#include "backend/services/journal/history_figures.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

using namespace std::chrono_literals;

const WallTime noon(1'800'000'000s);

JournalEntry event(JournalKind kind, WallTime time) {
  JournalEntry entry;
  entry.kind = kind;
  entry.time = time;
  entry.stream_id = 1;
  return entry;
}

JournalEntry end(WallTime time, Cause cause, double on_air = 0, bool goes_on = true) {
  JournalEntry entry = event(JournalKind::ended, time);
  entry.cause = cause;
  entry.on_air_seconds = on_air;
  if (goes_on) entry.retry_seconds = 3;
  return entry;
}

class HistoryFiguresTest : public testing::Test {
 protected:
  void add(const JournalEntry& entry, long long count = 1, std::optional<WallTime> first = {}) {
    figures_.add(entry, count, first.value_or(entry.time));
  }
  /// Of the last hour and day.
  std::pair<std::uint32_t, std::uint32_t> restarts(Cause cause, WallTime now) const {
    const auto summary = figures_.summarize(1, now);
    const auto index = static_cast<std::size_t>(cause);
    return {summary.restarts_last_hour[index], summary.restarts_last_day[index]};
  }
  double on_air(WallTime now) const { return figures_.summarize(1, now).on_air_percent.value_or(-1); }

  HistoryFigures figures_;
};

TEST_F(HistoryFiguresTest, CountsTheRestartsOfTheLastHourAndDayByCause) {
  add(end(noon, Cause::stalled));
  add(end(noon + 2h, Cause::exited));
  add(end(noon + 2h + 1min, Cause::exited));
  add(end(noon + 2h + 2min, Cause::operator_asked, 0, false));
  add(end(noon + 2h + 2min, Cause::server_end));
  using Case = std::tuple<Cause, WallTime, std::uint32_t, std::uint32_t>;  // the last hour's, the last day's
  const WallTime now = noon + 2h + 30min;
  for (const auto& [cause, time, hour, day] :
       {Case{Cause::exited, now, 2, 2}, Case{Cause::stalled, now, 0, 1}, Case{Cause::operator_asked, now, 0, 0},
        Case{Cause::server_end, now, 0, 0}, Case{Cause::exited, noon + 3h + 10min, 0, 2},
        Case{Cause::stalled, noon + 24h + 10min, 0, 0}})
    EXPECT_EQ(restarts(cause, time), std::pair(hour, day)) << to_word(cause);
}

TEST_F(HistoryFiguresTest, SpreadsTheRestartsOfACrashLoopOverItsTime) {
  add(end(noon + 48h, Cause::exited), 48 * 60, noon);
  EXPECT_NEAR(restarts(Cause::exited, noon + 48h).first, 60, 6);
  EXPECT_NEAR(restarts(Cause::exited, noon + 48h).second, 24 * 60, 6);
  EXPECT_NEAR(restarts(Cause::exited, noon + 60h).second, 12 * 60, 6);
}

TEST_F(HistoryFiguresTest, TheTimeOnTheAirIsThatOfTheLastDayOrOfTheStreamsLife) {
  EXPECT_EQ(on_air(noon), -1) << "an unknown stream";
  add(event(JournalKind::added, noon));
  EXPECT_EQ(on_air(noon), -1) << "a new stream";
  EXPECT_EQ(on_air(noon + 1h), 0);
  add(event(JournalKind::running, noon + 1h));
  EXPECT_NEAR(on_air(noon + 4h), 75, 0.01);
  add(end(noon + 6h, Cause::exited, 5 * 3600));
  EXPECT_NEAR(on_air(noon + 10h), 50, 0.01);
  add(event(JournalKind::running, noon + 10h));
  EXPECT_NEAR(on_air(noon + 28h), 100 * 20 / 24., 0.01) << "two hours of the first run, all of the second";
  EXPECT_NEAR(on_air(noon + 60h), 100, 0.01);
}

TEST_F(HistoryFiguresTest, WhatEarlierRunsOfTheServerToldComesBefore) {
  HistoryFigures earlier;
  earlier.begin(1, noon - 100h);
  earlier.add(end(noon, Cause::stalled, 6 * 3600), 1, noon);
  add(event(JournalKind::running, noon + 1h));
  add(end(noon + 2h, Cause::exited, 3600));
  figures_.prepend(std::move(earlier));
  EXPECT_EQ(restarts(Cause::stalled, noon + 2h).second, 1U);
  EXPECT_EQ(restarts(Cause::exited, noon + 2h).second, 1U);
  EXPECT_NEAR(on_air(noon + 2h), 100 * 7 / 24., 0.01);
}

TEST_F(HistoryFiguresTest, AStreamIsActiveUntilItStopsAndADeletedOneIsForgotten) {
  add(event(JournalKind::started, noon));
  add(end(noon + 1s, Cause::exited));
  EXPECT_TRUE(figures_.is_any_active());
  add(end(noon + 3s, Cause::operator_asked, 1, false));
  EXPECT_FALSE(figures_.is_any_active());
  add(event(JournalKind::deleted, noon + 4s));
  EXPECT_EQ(restarts(Cause::exited, noon + 5s).second, 0U);
  EXPECT_EQ(on_air(noon + 5s), -1);
}

}  // namespace
}  // namespace weir
