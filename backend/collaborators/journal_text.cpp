#include "backend/collaborators/journal_text.h"

#include <fmt/core.h>
#include <string.h>

#include "backend/base/mask_passwords.h"

namespace weir {

namespace {

std::string by_whom(const JournalEntry& entry) { return entry.by.empty() ? "" : " by " + entry.by; }

std::string after_colon(const std::string& text) { return text.empty() ? "" : ": " + text; }

std::string after_time_on_air(const JournalEntry& entry) {
  if (entry.on_air_seconds.value_or(0) <= 0) return {};
  return " after " + describe_seconds(*entry.on_air_seconds) + " on the air";
}

std::string describe_input(const JournalEntry& entry) {
  const int input = entry.input.value_or(0);
  return fmt::format("input #{}{}", input, input > 0 ? " (not the preferred one)" : "");
}

std::string describe_cause(const JournalEntry& end) {
  switch (end.cause.value_or(Cause::failed)) {
    case Cause::exited:
      return fmt::format("ended by itself with code {}", end.exit_status.value_or(0));
    case Cause::signalled: {
      const int signal = -end.exit_status.value_or(0);
      const char* name = ::sigdescr_np(signal);
      return fmt::format("ended by signal {} ({})", signal, name ? name : "unknown");
    }
    case Cause::not_launched:
      return "not launched";
    case Cause::no_input:
      return "not launched because no input answers";
    case Cause::stalled:
      return "restarted because its media time stood still";
    case Cause::speed:
      return "restarted because of its speed";
    case Cause::memory:
      return "restarted because of its memory";
    case Cause::directory_lost:
      return "restarted because its HLS directory was removed";
    case Cause::timetable:
      return "restarted by its timetable";
    case Cause::better_input:
      return "restarted for a better input";
    case Cause::operator_asked:
      return (end.retry_seconds ? "restarted" : "stopped") + by_whom(end);
    case Cause::server_end:
      return "ended with the server";
    case Cause::failed:
      return "ended because the supervision failed";
  }
  return {};
}

std::string describe_end(const JournalEntry& end) {
  std::string text = describe_cause(end);
  const std::string on_air = after_time_on_air(end);
  text += on_air;
  if (on_air.empty() && end.cycle_seconds.value_or(0) > 0) text += " after " + describe_seconds(*end.cycle_seconds);
  text += after_colon(end.text);
  // Only where it does not follow at once.
  if (end.retry_seconds.value_or(0) > 0) text += "; next launch in " + describe_seconds(*end.retry_seconds);
  return text;
}

std::string describe_start(const JournalEntry& entry) {
  std::string text = "started" + by_whom(entry);
  if (entry.retry_seconds.value_or(0) > 0) text += "; launches in " + describe_seconds(*entry.retry_seconds);
  return text;
}

std::string describe_running(const JournalEntry& entry) {
  return fmt::format("running on {}, {} after its launch, process {}", describe_input(entry),
                     describe_seconds(entry.cycle_seconds.value_or(0)), entry.process.value_or(0));
}

// "profile 3 changed by …" where it is not about a stream.
std::string describe_change(const JournalEntry& entry) {
  const std::string change = std::string(to_word(entry.kind)) + by_whom(entry);
  return entry.stream_id ? change + after_colon(entry.text) : entry.text + " " + change;
}

std::string describe_plainly(const JournalEntry& entry) {
  switch (entry.kind) {
    case JournalKind::status:
      return "status " + entry.text;
    case JournalKind::started:
      return describe_start(entry);
    case JournalKind::launched:
      return fmt::format("launched on {}, process {}", describe_input(entry), entry.process.value_or(0));
    case JournalKind::running:
      return describe_running(entry);
    case JournalKind::ended:
      return describe_end(entry);
    case JournalKind::failed:
      return fmt::format("stopped because the supervision failed{}; starts again in {}", after_colon(entry.text),
                         describe_seconds(entry.retry_seconds.value_or(0)));
    case JournalKind::stopped:
      return "stopped" + by_whom(entry) + after_time_on_air(entry);
    case JournalKind::added:
    case JournalKind::changed:
    case JournalKind::deleted:
      return describe_change(entry);
    case JournalKind::set_aside:
    case JournalKind::notice:
      return entry.text;
  }
  return {};
}

}  // namespace

std::string describe(const JournalEntry& entry) { return mask_passwords(describe_plainly(entry)); }

std::string describe_seconds(double seconds) {
  if (seconds < 9.95) return fmt::format("{:.1f} s", seconds);
  const auto whole = static_cast<long long>(seconds + 0.5);
  if (whole < 60) return fmt::format("{} s", whole);
  if (whole < 3600) return fmt::format("{} min {} s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{} h {} min", whole / 3600, whole / 60 % 60);
  return fmt::format("{} d {} h", whole / 86400, whole / 3600 % 24);
}

}  // namespace weir
