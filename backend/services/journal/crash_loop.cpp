#include "backend/services/journal/crash_loop.h"

#include <cctype>
#include <string_view>

namespace weir {

namespace {

constexpr double loop_seconds = 60;

bool ends_short_cycle(const JournalEntry& entry) {
  return entry.kind == JournalKind::ended && entry.cycle_seconds.value_or(0) < loop_seconds;
}

// The text up to the next memory address ("0x55d0c8a1b2c0"), which is skipped.
std::string_view take_until_address(std::string_view& rest) {
  const std::size_t address = rest.find("0x");
  const std::string_view part = rest.substr(0, address);
  rest.remove_prefix(part.size());
  if (address == std::string_view::npos) return part;
  rest.remove_prefix(2);
  while (!rest.empty() && std::isxdigit(static_cast<unsigned char>(rest.front()))) rest.remove_prefix(1);
  return part;
}

bool says_the_same(std::string_view left, std::string_view right) {
  while (!left.empty() && !right.empty())
    if (take_until_address(left) != take_until_address(right)) return false;
  return left.empty() && right.empty();
}

}  // namespace

bool repeats_end(const JournalEntry& last, const JournalEntry& end) {
  return ends_short_cycle(last) && ends_short_cycle(end) && last.cause == end.cause &&
         last.exit_status == end.exit_status && last.input == end.input && last.by == end.by &&
         says_the_same(last.text, end.text);
}

HistoryEntry extend(const HistoryEntry& last, const JournalEntry& end) {
  HistoryEntry both{end, last.count + 1, last.first};
  const double before = last.entry.on_air_seconds.value_or(0);
  if (end.on_air_seconds || before > 0) both.entry.on_air_seconds = end.on_air_seconds.value_or(0) + before;
  return both;
}

}  // namespace weir
