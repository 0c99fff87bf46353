#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "backend/base/document_secrets.h"
#include "backend/base/text_form.h"
#include "backend/platform/loop.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

constexpr std::array<double, 5> retry_delays{30, 60, 120, 300, 600};

double seconds_since(const std::optional<TimePoint>& begin) {
  return begin ? std::chrono::duration<double>(now() - *begin).count() : 0;
}

}  // namespace

double retry_delay(int failures) {
  const std::size_t index = static_cast<std::size_t>(std::max(failures, 1)) - 1;
  return retry_delays[std::min(index, retry_delays.size() - 1)];
}

void Stream::tell(JournalEntry entry) const {
  entry.stream_id = id;
  entry.label = to_text(conf->get_json_conf("label"));
  journal().record(std::move(entry));
}

JournalEntry Stream::describe_cycle(JournalKind kind) const {
  JournalEntry entry;
  entry.kind = kind;
  entry.cycle = cycle.number;
  entry.input = cycle.input;
  entry.process = cycle.process;
  entry.cycle_seconds = seconds_since(cycle.launched);
  return entry;
}

void Stream::tell_launched() {
  cycle.input = ffmpeg->input_index;
  cycle.process = proc->pid();
  cycle.launched = now();
  tell(describe_cycle(JournalKind::launched));
}

void Stream::tell_running() {
  cycle.running = now();
  failures_ = 0;
  tell(describe_cycle(JournalKind::running));
}

JournalEntry Stream::make_end(const Reason& reason) const {
  JournalEntry end = describe_cycle(JournalKind::ended);
  end.on_air_seconds = seconds_since(cycle.running);
  end.cause = reason.cause;
  end.text = reason.text;
  end.by = reason.by;
  return end;
}

// The transcoder's last lines are read by now.
void Stream::tell_ended(JournalEntry end, bool goes_on) {
  if (end.cause == Cause::exited) {
    end.exit_status = cycle.exit_status;
    if (cycle.exit_status < 0) end.cause = Cause::signalled;
  }
  if (end.text.empty()) end.text = find_error();
  if (!end.text.empty()) end.text = mask_secrets_of(conf->document(), end.text);
  if (goes_on) end.retry_seconds = delay;
  end.time = Loop::current().clock().wall();
  last_end = end;
  tell(std::move(end));
}

// A program that ends early may print its error without colours.
std::string Stream::find_error() const {
  const std::string& text = cycle.last_error.text();
  const bool failed_early = !cycle.running && cycle.exit_status && *cycle.exit_status > 0;
  if (!text.empty() || !failed_early || !cycle.has_printed) return text;
  return last_line(stdbuf.read());
}

Reason Stream::take_reason() { return std::exchange(reason_, std::nullopt).value_or(Reason()); }

void Stream::tell_stopped(const Reason& reason, std::optional<double> on_air) {
  failures_ = 0;
  JournalEntry entry;
  entry.kind = JournalKind::stopped;
  entry.cause = reason.cause;
  entry.by = reason.by;
  entry.on_air_seconds = on_air;
  tell(std::move(entry));
}

void Stream::tell_launched_early(const Reason& reason) const {
  const std::string by = reason.by.empty() ? "" : " by " + reason.by;
  tell({.by = reason.by, .text = "restarted" + by + " before its launch was due"});
}

void Stream::tell_failed(std::string_view reason) {
  JournalEntry entry;
  entry.kind = JournalKind::failed;
  entry.cause = Cause::failed;
  entry.text = reason;
  entry.retry_seconds = retry_delay(++failures_);
  tell(std::move(entry));
}

}  // namespace weir
