#include "backend/web/journal_json.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/journal_text.h"

namespace weir {

namespace {

template <class T>
void add_number(Value& value, const char* name, const std::optional<T>& number) {
  if (number) value[name] = *number;
}

void add_seconds(Value& value, const char* name, const std::optional<double>& seconds) {
  if (seconds) value[name] = std::round(*seconds * 1000) / 1000;
}

void add_text(Value& value, const char* name, const std::string& text) {
  if (!text.empty()) value[name] = mask_passwords(text);
}

}  // namespace

Value to_value(const JournalEntry& entry) {
  constexpr std::size_t members = 16;
  Value value = make_mapping(members);
  value["number"] = entry.number;
  value["time"] = to_iso8601(entry.time);
  value["kind"] = to_word(entry.kind);
  value["stream"] = entry.stream_id ? Value(*entry.stream_id) : Value();
  value["label"] = entry.stream_id ? Value(mask_passwords(entry.label)) : Value();
  add_number(value, "cycle", entry.cycle);
  add_number(value, "input", entry.input);
  add_number(value, "process", entry.process);
  if (entry.cause) value["cause"] = to_word(*entry.cause);
  add_number(value, "exit_status", entry.exit_status);
  add_seconds(value, "cycle_seconds", entry.cycle_seconds);
  add_seconds(value, "on_air_seconds", entry.on_air_seconds);
  add_seconds(value, "retry_seconds", entry.retry_seconds);
  add_text(value, "by", entry.by);
  add_text(value, "text", entry.text);
  value["description"] = describe(entry);
  return value;
}

}  // namespace weir
