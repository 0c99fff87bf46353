#include "backend/services/journal/journal_log.h"

#include <fmt/core.h>

#include "backend/base/log.h"
#include "backend/collaborators/journal_text.h"

namespace weir {

namespace {

LogLevel get_level_of_end(const JournalEntry& end) {
  switch (end.cause.value_or(Cause::failed)) {
    case Cause::not_launched:
    case Cause::no_input:
    case Cause::failed:
      return LogLevel::debug;  // the stream has said it with its reason
    case Cause::server_end:
      return LogLevel::debug;
    case Cause::operator_asked:
      return end.retry_seconds ? LogLevel::info : LogLevel::debug;  // a stop follows
    case Cause::timetable:
    case Cause::better_input:
      return LogLevel::info;
    default:
      return LogLevel::warning;
  }
}

LogLevel get_level(const JournalEntry& entry) {
  switch (entry.kind) {
    case JournalKind::status:
    case JournalKind::launched:
    case JournalKind::set_aside:  // whoever did it has said it
      return LogLevel::debug;
    case JournalKind::ended:
      return get_level_of_end(entry);
    case JournalKind::failed:
      return LogLevel::error;
    default:
      return LogLevel::info;
  }
}

std::string get_name(const JournalEntry& entry) {
  if (!entry.stream_id) return "Weir";
  return fmt::format("Stream {}{}{}", *entry.stream_id, entry.label.empty() ? "" : " ", entry.label);
}

// What stays the same from one cycle of a crash loop to the next.
std::string get_repeat_key(const JournalEntry& entry) {
  if (entry.kind != JournalKind::running && entry.kind != JournalKind::ended) return {};
  return fmt::format("{} {} {} {} {}", entry.stream_id.value_or(-1), to_word(entry.kind),
                     entry.cause ? to_word(*entry.cause) : "", entry.exit_status.value_or(0), entry.text);
}

}  // namespace

void JournalLog::read(const JournalEntry& entry) {
  log(LogLine{.level = get_level(entry),
              .name = get_name(entry),
              .text = describe(entry),
              .fields = {.stream = entry.stream_id,
                         .label = entry.label,
                         .kind = std::string(to_word(entry.kind)),
                         .cause = entry.cause ? std::string(to_word(*entry.cause)) : ""},
              .repeat_key = get_repeat_key(entry)});
}

}  // namespace weir
