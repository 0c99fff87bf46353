#include "backend/collaborators/utils.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

bool between(char c, unsigned char low, unsigned char high) {
  const auto code = static_cast<unsigned char>(c);
  return code >= low && code <= high;
}

std::size_t skip(std::string_view line, std::size_t at, unsigned char low, unsigned char high) {
  while (at < line.size() && between(line[at], low, high)) ++at;
  return at;
}

// One past the closing character at `at`; `start` when it is none.
std::size_t closed_by(std::string_view line, std::size_t at, unsigned char low, unsigned char high, std::size_t start) {
  return at < line.size() && between(line[at], low, high) ? at + 1 : start;
}

// An operating system command ends at BEL or ST and holds no other escape.
std::size_t end_of_string(std::string_view line, std::size_t at, std::size_t start) {
  at = line.find_first_of("\a\x1b", at);
  if (at == std::string_view::npos) return start;
  if (line[at] == '\a') return at + 1;
  return line.substr(at).starts_with("\x1b\\") ? at + 2 : start;
}

// The end of the control sequence whose escape character is at `start`; `start` when there is none (ECMA-48, sections
// 5.3 to 5.6).
std::size_t end_of_sequence(std::string_view line, std::size_t start) {
  const std::size_t kind = start + 1;
  if (kind >= line.size()) return start;
  if (line[kind] == '[') {
    const std::size_t parameters_end = skip(line, kind + 1, 0x30, 0x3F);
    return closed_by(line, skip(line, parameters_end, 0x20, 0x2F), 0x40, 0x7E, start);
  }
  if (line[kind] == ']') return end_of_string(line, kind + 1, start);
  if (between(line[kind], 0x40, 0x5F)) return kind + 1;
  return closed_by(line, skip(line, kind, 0x20, 0x2F), 0x30, 0x7E, start);
}

WallTime wall_time() { return Loop::current().clock().wall(); }

// --- timetables ---

constexpr long long max_number = 59;
constexpr std::size_t max_field_bytes = 1024;

int read_number(std::string_view text, std::string_view whole) {
  const auto number = parse_integer(text);
  if (!is_number(trim(text)) || !number || *number > max_number) {
    throw ValueError(fmt::format("invalid number \"{}\" in timetable \"{}\"", text, whole));
  }
  return static_cast<int>(*number);
}

void add_item(IntegerList& list, std::string_view item, std::string_view whole) {
  if (trim(item) == "*") {
    list.numbers.set();
    return;
  }
  const std::size_t dash = item.find('-');
  const int first = read_number(item.substr(0, dash), whole);
  const int last = dash == std::string_view::npos ? first : read_number(item.substr(dash + 1), whole);
  if (last < first) throw ValueError(fmt::format("invalid range \"{}\" in timetable \"{}\"", item, whole));
  for (int number = first; number <= last; ++number) list.numbers.set(static_cast<std::size_t>(number));
}

}  // namespace

void StandardBuffer::write(std::string_view text) {
  const bool begins_line = text_.empty() || text_.back() == '\n';
  if (begins_line && (marks_.empty() || wall_time() - marks_.back().time >= grain)) add_mark(0);
  text_ += text;
  if (text_.size() <= capacity) return;
  // Drops an eighth more than necessary, so that not every line moves the whole buffer.
  const std::size_t line_end = text_.find('\n', text_.size() - capacity + capacity / 8);
  drop(line_end == std::string::npos ? text_.size() - capacity : line_end + 1);
}

// Marks of nothing but cycles may not pile up either.
void StandardBuffer::add_mark(long long cycle) {
  constexpr std::size_t max_cycles_without_text = 100;
  const auto empty = std::ranges::find_if(marks_, [this](const Mark& mark) { return mark.position >= end(); });
  if (marks_.end() - empty > static_cast<std::ptrdiff_t>(max_cycles_without_text)) marks_.erase(empty);
  marks_.push_back({end(), wall_time(), cycle});
}

// The mark of the text that is first then is kept.
void StandardBuffer::drop(std::size_t size) {
  text_.erase(0, size);
  begin_ += size;
  const auto later = std::ranges::find_if(marks_, [this](const Mark& mark) { return mark.position > begin_; });
  if (later - marks_.begin() > 1) marks_.erase(marks_.begin(), later - 1);
}

std::string_view StandardBuffer::text_from(Position position) const {
  const Position from = std::clamp(position, begin(), end());
  return std::string_view(text_).substr(from - begin_);
}

std::string StandardBuffer::read() const { return text_; }

bool StandardBuffer::truncate() {
  begin_ = end();
  text_ = {};
  marks_ = {};
  return true;
}

std::vector<std::string_view> ConsoleCodesPattern::findall(std::string_view line) const {
  std::vector<std::string_view> sequences;
  std::size_t at = line.find('\x1b');
  while (at != std::string_view::npos) {
    const std::size_t end = end_of_sequence(line, at);
    if (end > at) sequences.push_back(line.substr(at, end - at));
    at = line.find('\x1b', end > at ? end : at + 1);
  }
  return sequences;
}

std::string strip_console_codes(std::string_view line) {
  std::string plain;
  plain.reserve(line.size());
  const char* at = line.data();
  for (const std::string_view sequence : console_codes_pattern.findall(line)) {
    plain.append(at, sequence.data());
    at = sequence.data() + sequence.size();
  }
  return plain.append(at, line.data() + line.size());
}

std::string find_playlist_name_fault(std::string_view name) {
  if (name.starts_with('.')) return fmt::format("{} starts with a dot: it is not served", name);
  if (name.size() > max_replaceable_name) return fmt::format("longer than {} bytes", max_replaceable_name);
  return {};
}

IntegerList str2intl(const Value& text) {
  IntegerList list;
  if (text.is_null()) return list;
  if (!text.is_string() && !text.is_number_integer())
    throw TypeError(fmt::format("invalid timetable {}", to_text(text)));
  const std::string whole = to_text(text);
  if (trim(whole).empty()) return list;
  if (whole.size() > max_field_bytes) throw ValueError("a timetable's field is too long");
  for (std::string_view rest = whole;;) {
    const std::size_t comma = std::min(rest.find(','), rest.size());
    add_item(list, rest.substr(0, comma), whole);
    if (comma == rest.size()) return list;
    rest.remove_prefix(comma + 1);
  }
}

}  // namespace weir
