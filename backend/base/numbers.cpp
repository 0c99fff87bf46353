#include "backend/base/numbers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <string>

#include "backend/base/text.h"

namespace weir {

namespace {

// Digits with at most one point, up to 15 of them: both the digits as an integer and the power of ten are exact, so
// their quotient is rounded correctly (W. D. Clinger, "How to read floating point numbers accurately"). Nothing for the
// rest.
std::optional<double> parse_short_decimal(std::string_view text) {
  static constexpr std::array powers{1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                     1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (text.empty() || text.size() > 16) return std::nullopt;
  long long digits = 0;
  std::size_t count = 0;
  std::size_t point = text.size() - 1;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] >= '0' && text[i] <= '9') {
      digits = digits * 10 + (text[i] - '0');
      ++count;
    } else if (text[i] == '.' && count == i) {
      point = i;
    } else {
      return std::nullopt;
    }
  }
  if (count == 0 || count > 15) return std::nullopt;
  return static_cast<double>(digits) / powers[text.size() - 1 - point];
}

}  // namespace

bool is_number(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

int compare_numbers(std::string_view left, std::string_view right) {
  left.remove_prefix(std::min(left.find_first_not_of('0'), left.size()));
  right.remove_prefix(std::min(right.find_first_not_of('0'), right.size()));
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return left.compare(right);
}

std::optional<long long> parse_integer(std::string_view text) {
  text = trim(text);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<double> parse_float(std::string_view text) {
  text = trim(text);
  if (const auto number = parse_short_decimal(text)) return number;
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (end != text.data() + text.size() || text.ends_with(')')) return std::nullopt;
  if (error == std::errc::result_out_of_range) return std::strtod(std::string(text).c_str(), nullptr);
  if (error != std::errc()) return std::nullopt;
  return number;
}

}  // namespace weir
