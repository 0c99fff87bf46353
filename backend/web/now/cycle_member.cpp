#include "backend/web/now/cycle_member.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/collaborators/journal_text.h"
#include "backend/platform/loop.h"
#include "backend/web/now/json_text.h"

namespace weir {

namespace {

bool is_about_state(JournalKind kind) {
  switch (kind) {
    case JournalKind::started:
    case JournalKind::launched:
    case JournalKind::running:
    case JournalKind::ended:
    case JournalKind::stopped:
    case JournalKind::failed:
      return true;
    default:
      return false;
  }
}

std::string format_end(const JournalEntry& end) {
  return make_json([&](JsonMapping& mapping) {
    mapping.add_time("time", end.time);
    mapping.add_text("cause", end.cause ? to_word(*end.cause) : "");
    mapping.add_number("exit_status", end.exit_status ? std::optional<long long>(*end.exit_status) : std::nullopt);
    mapping.add_number("on_air_seconds", end.on_air_seconds, 1);
    mapping.add_text("text", describe(end));
  });
}

std::optional<double> seconds_until(const std::optional<TimePoint>& time) {
  if (!time) return std::nullopt;
  return std::max(0.0, std::chrono::duration<double>(*time - now()).count());
}

}  // namespace

RecordMember CycleMember::make() {
  return {"cycle", [this](std::string& json, const Stream& stream) { append(json, stream); },
          [this](long long id) { kept_.erase(id); }};
}

void CycleMember::read(const JournalEntry& entry) {
  if (!entry.stream_id || !is_about_state(entry.kind)) return;
  Kept& kept = kept_[*entry.stream_id];
  kept.kind = entry.kind;
  kept.time = entry.time;
  kept.retry_seconds = entry.retry_seconds.value_or(0);
}

std::string_view CycleMember::state_of(const Stream& stream, const Kept* kept) const {
  if (stream.thread.dead()) return "stopped";
  if (stream.proc && stream.cycle.running) return "running";
  if (stream.proc && waits_ && waits_(stream)) return "waiting";
  return stream.next_launch && kept && kept->kind == JournalKind::ended ? "restarting" : "starting";
}

// An end is put into words once: a stream may show it for months.
const std::string& CycleMember::last_end(const Stream& stream, Kept& kept) {
  if (kept.end_time != stream.last_end->time) {
    kept.end = format_end(*stream.last_end);
    kept.end_time = stream.last_end->time;
  }
  return kept.end;
}

void CycleMember::append(std::string& json, const Stream& stream) {
  const auto found = kept_.find(stream.id);
  Kept* kept = found == kept_.end() ? nullptr : &found->second;
  const std::string_view state = state_of(stream, kept);
  std::optional<WallTime> since;
  if (kept) since = kept->time;
  // Between the planned launch and the real one the inputs are probed.
  if (kept && state == "starting" && kept->kind == JournalKind::ended)
    *since += std::chrono::duration_cast<WallTime::duration>(std::chrono::duration<double>(kept->retry_seconds));
  const bool has_cycle = stream.cycle.number > 0;
  JsonMapping cycle(json);
  cycle.add_number("number", std::optional<long long>(stream.cycle.number));
  cycle.add_text("state", state);
  cycle.add_time("since", since);
  cycle.add_number("input", has_cycle ? std::optional<long long>(stream.cycle.input) : std::nullopt);
  cycle.add("preferred", !has_cycle ? "null" : stream.cycle.input == 0 ? "true" : "false");
  cycle.add_number("next_launch", seconds_until(stream.next_launch), 1);
  cycle.add("last_end", kept && stream.last_end ? last_end(stream, *kept) : "null");
}

}  // namespace weir
