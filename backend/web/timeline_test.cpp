#include "backend/web/timeline.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "backend/web/history_routes.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using enum JournalKind;

const WallTime midnight(std::chrono::sys_days(std::chrono::year(2026) / 11 / 23));

/// An entry at a minute of the day.
struct Event {
  int minute;
  JournalKind kind;
  std::optional<int> input = {};
  std::optional<Cause> cause = {};
  bool goes_on = true;
  long long count = 1;
  int first = 0;
};

HistoryEntry row(const Event& event) {
  HistoryEntry made;
  made.entry.time = midnight + std::chrono::minutes(event.minute);
  made.first = event.count > 1 ? midnight + std::chrono::minutes(event.first) : made.entry.time;
  made.count = event.count;
  made.entry.kind = event.kind;
  made.entry.input = event.input;
  made.entry.cause = event.cause;
  if (event.kind == ended && event.goes_on) made.entry.retry_seconds = 3;
  return made;
}

// "00:00-00:10 running 0"
std::string describe_intervals(const Value& timeline) {
  std::string text;
  for (const Value& interval : timeline.at("intervals")) {
    const auto clock = [&](const char* name) { return interval.at(name).get<std::string>().substr(11, 5); };
    text += fmt::format("{}{}-{} {}", text.empty() ? "" : ", ", clock("from"), clock("to"),
                        interval.at("status").get<std::string>());
    if (interval.contains("input")) text += fmt::format(" {}", interval.at("input").get<int>());
  }
  return text;
}

TEST(Timeline, ShowsStatusAndInputAsIntervalsAndRestartsWithTheirCauses) {
  const std::tuple<const char*, std::optional<Event>, std::vector<Event>, const char*, const char*> cases[] = {
      {"two inputs",
       Event{-9, running, 0},
       {{10, ended, 0, Cause::stalled}, {11, running, 1}, {40, ended, 1, Cause::better_input}, {41, running, 0}},
       "00:00-00:10 running 0, 00:10-00:11 restarting, 00:11-00:40 running 1, 00:40-00:41 restarting, 00:41-01:00 "
       "running 0",
       "stalled better_input"},
      {"a crash loop",
       Event{-9, running, 0},
       {{50, ended, 0, Cause::exited, true, 700, 20}, {51, running, 0}},
       "00:00-00:20 running 0, 00:20-00:51 restarting, 00:51-01:00 running 0",
       "exited*700"},
      {"a crash loop that began before",
       Event{-90, started},
       {{50, ended, 0, Cause::exited, true, 9, -20}},
       "00:00-01:00 restarting",
       "exited*9"},
      {"stopped and started again",
       Event{-9, running, 0},
       {{10, ended, 0, Cause::operator_asked, false}, {10, stopped, {}, Cause::operator_asked}, {30, started}},
       "00:00-00:10 running 0, 00:10-00:30 stopped, 00:30-01:00 starting",
       ""},
      {"the server was down",
       Event{-9, running, 0},
       {{10, ended, 0, Cause::server_end}, {30, started}, {31, running, 0}},
       "00:00-00:10 running 0, 00:10-00:30 server_down, 00:30-00:31 starting, 00:31-01:00 running 0",
       ""},
  };
  for (const auto& [name, before, events, intervals, restarts] : cases) {
    std::vector<HistoryEntry> rows;
    for (const Event& event : events) rows.push_back(row(event));
    std::optional<HistoryEntry> last;
    if (before) last = row(*before);
    const Value timeline = make_timeline(rows, last, midnight, midnight + 1h);
    EXPECT_EQ(describe_intervals(timeline), intervals) << name;
    std::string causes;
    for (const Value& restart : timeline.at("restarts")) {
      causes += (causes.empty() ? "" : " ") + restart.at("cause").get<std::string>();
      if (restart.contains("count")) causes += fmt::format("*{}", restart.at("count").get<int>());
    }
    EXPECT_EQ(causes, restarts) << name;
  }
}

TEST(HistoryQueries, AreReadFromTheParametersOrRefused) {
  const auto request = [](const std::string& query) {
    Request made;
    made.target = *parse_target("/api/history?" + query);
    return made;
  };
  const HistoryQuery query = read_history_query(request("before=9&after=3&kind=ended,%20failed&cause=operator"));
  EXPECT_EQ(query.before, 9U);
  EXPECT_EQ(query.after, 3U);
  EXPECT_EQ(query.kinds, (std::vector{ended, failed}));
  EXPECT_EQ(query.causes, std::vector{Cause::operator_asked});
  for (const char* wrong : {"before=-1", "limit=99999999999999999999", "kind=ended,,failed"})
    EXPECT_THROW(read_history_query(request(wrong)), HttpError) << wrong;
}

}  // namespace
}  // namespace weir
