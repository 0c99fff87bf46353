#include "backend/web/timeline.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/mask_passwords.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/journal_text.h"

namespace weir {

namespace {

/// What a stream does from an event on.
struct State {
  std::string_view status;  ///< empty: unknown
  std::optional<int> input;
  bool operator==(const State&) const = default;
};

State state_after(const JournalEntry& entry) {
  switch (entry.kind) {
    case JournalKind::started:
      return {"starting", std::nullopt};
    case JournalKind::running:
      return {"running", entry.input};
    case JournalKind::ended:
      if (entry.cause == Cause::server_end) return {"server_down", std::nullopt};
      return {entry.retry_seconds ? "restarting" : "stopped", std::nullopt};
    case JournalKind::stopped:
      return {entry.cause == Cause::server_end ? "server_down" : "stopped", std::nullopt};
    case JournalKind::failed:
      return {"failed", std::nullopt};
    default:  // of timeline_kinds: it was added
      return {"stopped", std::nullopt};
  }
}

void add_interval(Value& intervals, const State& state, WallTime from, WallTime to) {
  if (state.status.empty() || from >= to) return;
  Value interval{{"from", to_iso8601(from)}, {"to", to_iso8601(to)}, {"status", state.status}};
  if (state.input) interval["input"] = *state.input;
  intervals.push_back(std::move(interval));
}

Value make_intervals(const std::vector<HistoryEntry>& rows, State state, WallTime from, WallTime to) {
  Value intervals = Value::array();
  WallTime begin = from;
  for (const HistoryEntry& row : rows) {
    const State next = state_after(row.entry);
    if (next == state) continue;
    // A crash loop lasts from its first end on.
    const WallTime change = std::clamp(row.first, begin, to);
    add_interval(intervals, state, begin, change);
    state = next;
    begin = change;
  }
  add_interval(intervals, state, begin, to);
  return intervals;
}

bool is_restart(const JournalEntry& entry) {
  return entry.kind == JournalKind::ended && entry.retry_seconds && entry.cause && entry.cause != Cause::server_end;
}

Value make_restart(const HistoryEntry& row) {
  Value restart{{"time", to_iso8601(row.entry.time)}, {"cause", to_word(*row.entry.cause)}};
  if (row.count > 1) {
    restart["first"] = to_iso8601(row.first);
    restart["count"] = row.count;
  }
  if (row.entry.input) restart["input"] = *row.entry.input;
  restart["description"] = describe(row.entry);
  return restart;
}

}  // namespace

Value make_timeline(const std::vector<HistoryEntry>& rows, const std::optional<HistoryEntry>& before, WallTime from,
                    WallTime to) {
  const State begin = before ? state_after(before->entry) : State{};
  Value restarts = Value::array();
  for (const HistoryEntry& row : rows)
    if (is_restart(row.entry)) restarts.push_back(make_restart(row));
  return {{"from", to_iso8601(from)},
          {"to", to_iso8601(to)},
          {"intervals", make_intervals(rows, begin, from, to)},
          {"restarts", std::move(restarts)}};
}

const std::vector<JournalKind>& timeline_kinds() {
  using enum JournalKind;
  static const std::vector<JournalKind> kinds{started, running, ended, stopped, failed, added};
  return kinds;
}

}  // namespace weir
