#include "backend/web/now/json_text.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "backend/base/text_form.h"
#include "backend/base/time_text.h"

namespace weir {

void append_number(std::string& json, std::optional<double> value, int decimals) {
  if (!value || !std::isfinite(*value)) {
    json += "null";
    return;
  }
  const double scale = std::pow(10, decimals);
  // Adding 0 makes a negative zero a plain one.
  fmt::format_to(std::back_inserter(json), "{}", std::round(*value * scale) / scale + 0.0);
}

void JsonMapping::add(std::string_view name, std::string_view value) {
  if (!std::exchange(is_first_, false)) json_ += ',';
  json_ += '"';
  json_ += name;
  json_ += "\":";
  json_ += value;
}

void JsonMapping::add_text(std::string_view name, std::string_view value) { add(name, to_json(value)); }

void JsonMapping::add_number(std::string_view name, std::optional<double> value, int decimals) {
  add(name, "");
  append_number(json_, value, decimals);
}

void JsonMapping::add_number(std::string_view name, std::optional<long long> value) {
  add(name, value ? fmt::format_int(*value).str() : "null");
}

void JsonMapping::add_time(std::string_view name, std::optional<WallTime> value) {
  if (value)
    add_text(name, to_iso8601(*value));
  else
    add(name, "null");
}

}  // namespace weir
