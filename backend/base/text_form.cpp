#include "backend/base/text_form.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace weir {

namespace {

std::string fraction_text(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
  std::array<char, 400> buffer{};
  const auto convert = [&](std::chars_format format) {
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, format);
    return std::string(buffer.data(), end.ptr);
  };
  std::string text = convert(std::chars_format::scientific);
  const int exponent = std::atoi(text.c_str() + text.find('e') + 1);
  if (exponent < -4 || exponent >= 16) return text;
  text = convert(std::chars_format::fixed);
  if (text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string to_text(const Value& value) {
  if (value.is_null()) return "None";
  if (value.is_boolean()) return value.get<bool>() ? "True" : "False";
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_float()) return fraction_text(value.get<double>());
  if (value.is_number_unsigned()) return std::to_string(value.get<unsigned long long>());
  if (value.is_number_integer()) return std::to_string(value.get<long long>());
  return to_json(value);
}

std::string to_json(const Value& value, bool pretty) {
  return value.dump(pretty ? 2 : -1, ' ', false, Value::error_handler_t::replace);
}

}  // namespace weir
