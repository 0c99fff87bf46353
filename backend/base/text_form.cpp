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

std::size_t quoted_size(const std::string& text) {
  std::size_t size = text.size() + 2;
  for (const char c : text) {
    if (c == '"' || c == '\\' || (c >= '\b' && c <= '\r' && c != '\v')) {
      size += 1;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      size += 5;
    }
  }
  return size;
}

// Each member stands on a line of its own, its mapping's end on another.
std::size_t pretty_size(const Value& value, std::size_t indent) {
  if (value.is_string()) return quoted_size(value.get_ref<const std::string&>());
  if (!value.is_structured() || value.empty()) return to_json(value).size();
  std::size_t size = 2 + 1 + indent;
  for (const auto& [name, element] : value.items()) {
    if (value.is_object()) size += quoted_size(name) + 2;
    size += 2 + indent + 2 + pretty_size(element, indent + 2);
  }
  return size - 1;  // no comma after the last one
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

std::size_t pretty_json_size(const Value& value) { return pretty_size(value, 0); }

}  // namespace weir
