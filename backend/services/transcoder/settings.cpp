#include "backend/services/transcoder/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

constexpr std::size_t max_shown_bytes = 200;

bool is_alphanumeric(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool is_word(std::string_view text) {
  auto allowed = [](char c) {
    return is_alphanumeric(c) || std::string_view("_.+-,").find(c) != std::string_view::npos;
  };
  return !text.empty() && text.size() <= 100 && is_alphanumeric(text[0]) && std::ranges::all_of(text, allowed);
}

/// The value as a number, from a JSON number or a text; nothing when it is neither.
std::optional<double> as_number(const Value& value) {
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) return parse_float(value.get_ref<const std::string&>());
  return std::nullopt;
}

}  // namespace

bool has_control_characters(std::string_view text) {
  return std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

Settings::Settings(const Value& mapping, std::string name) : mapping_(&mapping), name_(std::move(name)) {}

const Value& Settings::raw(std::string_view key) const { return member(*mapping_, key); }

bool Settings::has(std::string_view key) const {
  const Value& value = raw(key);
  return !value.is_null() && !(value.is_string() && trim(value.get_ref<const std::string&>()).empty());
}

std::string Settings::text(std::string_view key, std::string_view fallback) const {
  if (!has(key)) return std::string(fallback);
  const Value& value = raw(key);
  if (!value.is_string() && !value.is_number()) refuse_value(key, "is not a text");
  std::string text = to_text(value);
  if (has_control_characters(text)) refuse(key, "has control characters");
  return text;
}

std::string Settings::word(std::string_view key, std::string_view fallback) const {
  std::string text(trim(this->text(key, fallback)));
  if (!text.empty() && !is_word(text)) refuse_value(key, "is not a name");
  return text;
}

std::optional<long long> Settings::whole(std::string_view key, long long min, long long max) const {
  auto value = number(key, static_cast<double>(min), static_cast<double>(max));
  if (!value) return std::nullopt;
  if (*value != std::floor(*value)) refuse_value(key, "is not a whole number");
  return static_cast<long long>(*value);
}

std::optional<double> Settings::number(std::string_view key, double min, double max) const {
  if (!has(key)) return std::nullopt;
  auto value = as_number(raw(key));
  if (!value || !(*value >= min && *value <= max)) {
    refuse_value(key, fmt::format("is not a number from {} to {}", min, max));
  }
  return value;
}

bool Settings::flag(std::string_view key) const {
  const Value& value = raw(key);
  if (!has(key)) return false;
  if (value.is_boolean()) return value.get<bool>();
  static constexpr std::array<std::string_view, 4> yes = {"1", "true", "yes", "on"};
  static constexpr std::array<std::string_view, 4> no = {"0", "false", "no", "off"};
  const std::string text = to_text(value);
  if (std::ranges::find(yes, trim(text)) != yes.end()) return true;
  if (std::ranges::find(no, trim(text)) == no.end()) refuse_value(key, "is not yes or no");
  return false;
}

Settings Settings::section(std::string_view key) const {
  const Value& value = raw(key);
  if (has(key) && !value.is_object()) refuse_value(key, "is not a mapping");
  return Settings(value, name_.empty() ? std::string(key) : fmt::format("{}.{}", name_, key));
}

void Settings::refuse(std::string_view key, std::string_view why) const {
  throw ValueError(fmt::format("{}{}{}: {}", name_, name_.empty() ? "" : ".", key, why));
}

void Settings::refuse_value(std::string_view key, std::string_view why) const {
  if (!has(key)) refuse(key, "missing");
  refuse(key, fmt::format("{} {}", to_text(raw(key)).substr(0, max_shown_bytes), why));
}

}  // namespace weir
