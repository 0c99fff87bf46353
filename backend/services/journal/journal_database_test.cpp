#include "backend/services/journal/journal_database.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <map>

#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using enum JournalKind;

const WallTime start(1'800'000'000s);

/// An event of stream 1.
struct Event {
  JournalKind kind;
  long long cycle = 0;
  double cycle_seconds = 0;
  std::string text = {};
  std::optional<Cause> cause = Cause::exited;
  std::optional<double> retry_seconds = 3;
  std::string by = {};
};

class JournalDatabaseTest : public testing::Test {
 protected:
  JournalEntry entry(const Event& event, long long stream = 1) {
    JournalEntry made;
    made.number = ++number_;
    made.time = start + std::chrono::seconds(number_);
    made.kind = event.kind;
    made.stream_id = stream;
    made.cycle = event.cycle;
    made.input = 0;
    if (event.kind == ended || event.kind == stopped) made.cause = event.cause;
    made.cycle_seconds = event.cycle_seconds;
    if (event.kind == ended) made.on_air_seconds = event.cycle_seconds / 2;
    if (event.kind == ended) made.retry_seconds = event.retry_seconds;
    made.text = event.text;
    made.by = event.by;
    return made;
  }
  void write(const std::vector<Event>& events, long long stream = 1) {
    std::vector<JournalEntry> entries;
    for (const Event& event : events) entries.push_back(entry(event, stream));
    database_->write(entries, start + std::chrono::seconds(number_));
  }
  void open(HistoryLimits limits = {}) {
    database_ = std::make_unique<JournalDatabase>(directory_.path() / "journal.db", limits);
  }
  /// Kinds and numbers, the oldest first: "started1 ended*2/4".
  std::string rows(const HistoryQuery& query = {}) {
    std::string text;
    for (const HistoryEntry& row : database_->find(query)) {
      std::string one(to_word(row.entry.kind));
      if (row.count > 1) one += fmt::format("*{}/", row.count);
      text.insert(0, one + std::to_string(row.entry.number) + (text.empty() ? "" : " "));
    }
    return text;
  }

  test::TemporaryDirectory directory_;
  std::unique_ptr<JournalDatabase> database_;
  std::uint64_t number_ = 0;
};

TEST_F(JournalDatabaseTest, TheEqualEndsOfACrashLoopAreOneRow) {
  const Event first{ended, 1, 2, "[tcp @ 0x55d0] refused"};
  const std::tuple<const char*, std::vector<Event>, const char*> cases[] = {
      {"without progress", {first, {ended, 2, 2, first.text}, {ended, 3, 2, first.text}}, "ended*3/3"},
      {"with progress", {first, {running, 2}, {ended, 2, 59, first.text}}, "ended*2/3"},
      {"another address in memory", {first, {ended, 2, 2, "[tcp @ 0x7fa9c1] refused"}}, "ended*2/2"},
      {"another text", {first, {ended, 2, 2, "[tcp @ 0x55d0] refused by"}}, "ended1 ended2"},
      {"another cause", {first, {ended, 2, 2, first.text, Cause::signalled}}, "ended1 ended2"},
      {"asked for by somebody", {first, {ended, 2, 2, first.text, Cause::exited, 3, "10.0.0.5"}}, "ended1 ended2"},
      {"a long cycle", {first, {ended, 2, 60, first.text}}, "ended1 ended2"},
      {"something between", {first, {changed}, {ended, 2, 2, first.text}}, "ended1 changed2 ended3"},
      {"progress of another cycle", {first, {running, 7}, {ended, 2, 2, first.text}}, "ended1 running2 ended3"},
      {"what other entries say is left out", {first, {status}, {launched}, {ended, 2, 2, first.text}}, "ended*2/4"},
  };
  for (const auto& [name, events, expected] : cases) {
    for (const bool apart : {false, true}) {
      std::filesystem::remove(directory_.path() / "journal.db");
      open();
      number_ = 0;
      if (!apart) write(events);
      for (const Event& event : events)
        if (apart) write({event});
      EXPECT_EQ(rows(), expected) << name;
      database_.reset();
    }
  }
}

TEST_F(JournalDatabaseTest, ARowOfACrashLoopKeepsItsFirstTimeAndSumsUpTheTimeOnTheAir) {
  open();
  write({{started}, {ended, 1, 4}, {running, 2}, {ended, 2, 6}, {ended, 3, 8}});
  write({{ended, 1, 4}}, 2);
  const HistoryEntry row = database_->find({.stream_id = 1, .limit = 1}).at(0);
  EXPECT_EQ(row.count, 3);
  EXPECT_EQ(row.first, start + 2s);
  EXPECT_EQ(row.entry.time, start + 5s);
  EXPECT_EQ(row.entry.on_air_seconds, 9);
  EXPECT_EQ(row.entry.cycle, 3);
  EXPECT_EQ(rows({.stream_id = 2}), "ended6") << "another stream";
}

TEST_F(JournalDatabaseTest, AnEntryIsReadAsItWasWritten) {
  open();
  JournalEntry full = entry({ended, 7, 1.5, "it's \"so\"\n\u00fc", Cause::signalled});
  full.label = "News";
  full.process = 4711;
  full.exit_status = -9;
  full.by = "10.0.0.5";
  const JournalEntry bare{.number = ++number_, .time = start, .kind = notice, .text = "x"};
  database_->write(std::vector{full, bare}, start);
  const std::vector<HistoryEntry> found = database_->find({});
  EXPECT_FALSE(found.at(0).entry.stream_id || found[0].entry.cause || found[0].entry.on_air_seconds);
  const JournalEntry& read = found.at(1).entry;
  const auto fields = [](const JournalEntry& e) {
    return std::tie(e.number, e.time, e.kind, e.stream_id, e.label, e.cycle, e.input, e.process, e.cause, e.exit_status,
                    e.cycle_seconds, e.on_air_seconds, e.retry_seconds, e.by, e.text);
  };
  EXPECT_TRUE(fields(read) == fields(full));
}

TEST_F(JournalDatabaseTest, KeepsTheNewestEntriesOfEachStreamForALimitedTime) {
  open({.entries_per_stream = 3, .age = std::chrono::days(1)});
  write({{started}, {running, 1}, {changed}, {changed}, {changed}});
  write({{started}}, 2);
  EXPECT_EQ(rows(), "changed3 changed4 changed5 started6");
  open({.entries_per_stream = 2, .age = std::chrono::days(1)});
  write({{changed}});
  EXPECT_EQ(rows({.stream_id = 1}), "changed5 changed7") << "a lower limit, after a restart";
  database_->write({}, start + 24h + 5s + 500ms);
  EXPECT_EQ(rows(), "started6 changed7");
  number_ = 100'000;
  for (int i = 0; i < 4; ++i) write({{changed}});
  EXPECT_EQ(rows(), "changed100003 changed100004") << "rows that were removed for their age are not counted";
}

TEST_F(JournalDatabaseTest, FindsWhatIsAskedFor) {
  open();
  write({{added}, {ended, 1, 1, "", Cause::exited}, {ended, 2, 1, "", Cause::stalled}, {deleted}, {added}});
  write({{added}, {ended, 1, 1, "", Cause::stalled}}, 2);
  const std::pair<HistoryQuery, const char*> cases[] = {
      {{}, "added1 ended2 ended3 deleted4 added5 added6 ended7"},
      {{.stream_id = 1}, "added1 ended2 ended3 deleted4 added5"},
      {{.stream_id = 1, .since_added = true}, "added5"},
      {{.stream_id = 2, .since_added = true}, "added6 ended7"},
      {{.before = 6, .after = 3, .limit = 1}, "added5"},
      {{.since = start + 6s}, "added6 ended7"},
      {{.kinds = {deleted, ended}, .limit = 3}, "ended3 deleted4 ended7"},
      {{.causes = {Cause::stalled}}, "ended3 ended7"},
  };
  for (const auto& [query, expected] : cases) EXPECT_EQ(rows(query), expected);
  std::map<long long, WallTime> first_times;
  database_->visit_first_times([&](long long stream, WallTime time) { first_times[stream] = time; });
  EXPECT_EQ(first_times, (std::map<long long, WallTime>{{1, start + 5s}, {2, start + 6s}}));
}

TEST_F(JournalDatabaseTest, WhatWasAtWorkWhenTheServerDiedEndsWhenItWasLastKnownAlive) {
  const Event restarting{ended, 2, 1};
  const Event last_end{ended, 2, 1, "", Cause::operator_asked, std::nullopt};
  const std::tuple<std::vector<Event>, const char*, const char*> cases[] = {
      {{{started}}, "started1 ended2", "without a cycle"},
      {{{started}, {running, 1, 5}, {changed}}, "started1 running2 changed3 ended4", "on the air"},
      {{{started}, restarting}, "started1 ended2 stopped3", "between cycles"},
      {{{started}, last_end, {stopped}}, "started1 ended2 stopped3", "stopped"},
      {{{added}}, "added1", "never started"},
      {{{started}, {failed}, {changed}}, "started1 failed2 changed3", "failed"},
      {{{failed}, {stopped}}, "failed1 stopped2", "stopped after a failure"},
  };
  for (const auto& [events, expected, name] : cases) {
    std::filesystem::remove(directory_.path() / "journal.db");
    open();
    number_ = 0;
    write(events);
    database_->write({}, start + 60s);
    for (int i = 0; i < 2; ++i) database_->close_open_runs();
    EXPECT_EQ(rows(), expected) << name;
    EXPECT_EQ(database_->open_failures().size(), std::string_view(name) == "failed" ? 1U : 0U) << name;
    const JournalEntry last = database_->find({.limit = 1}).at(0).entry;
    const bool on_air = std::string_view(name) == "on the air";
    if (last.cause == Cause::server_end) EXPECT_EQ(last.time, start + 60s) << name;
    EXPECT_EQ(last.on_air_seconds.value_or(0), on_air ? 58 : 0) << name;
    EXPECT_EQ(last.cycle_seconds.value_or(0), on_air ? 63 : 0) << name;
    database_.reset();
  }
}

}  // namespace
}  // namespace weir
