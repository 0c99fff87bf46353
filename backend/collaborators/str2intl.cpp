#include "backend/collaborators/str2intl.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/platform/failure.h"

namespace weir {

namespace {

constexpr long long largest = 59;
constexpr std::size_t longest_text = 1024;

int read_number(std::string_view text, std::string_view whole) {
  const auto number = parse_integer(text);
  if (!is_number(trim(text)) || !number || *number > largest) {
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

IntegerList str2intl(const Value& text) {
  IntegerList list;
  if (text.is_null()) return list;
  if (!text.is_string() && !text.is_number_integer())
    throw TypeError(fmt::format("invalid timetable {}", to_text(text)));
  const std::string whole = to_text(text);
  if (trim(whole).empty()) return list;
  if (whole.size() > longest_text) throw ValueError("a timetable's field is too long");
  for (std::string_view rest = whole;;) {
    const std::size_t comma = std::min(rest.find(','), rest.size());
    add_item(list, rest.substr(0, comma), whole);
    if (comma == rest.size()) return list;
    rest.remove_prefix(comma + 1);
  }
}

}  // namespace weir
