#include "backend/web/schema/member_check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/network_address.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/input_rules.h"
#include "backend/collaborators/utils.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

using Kind = MemberKind;

constexpr std::size_t max_shown_bytes = 200;

std::string show(const Value& value) { return to_text(value).substr(0, max_shown_bytes); }

bool has_controls(std::string_view text) {
  return std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

std::optional<double> as_number(const Value& value) {
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) return parse_float(value.get_ref<const std::string&>());
  return std::nullopt;
}

std::string find_number_fault(const MemberRule& rule, const Value& value, bool whole) {
  const auto number = as_number(value);
  const double min = rule.min.value_or(std::numeric_limits<double>::lowest());
  const bool fits = number && *number >= min && *number <= rule.max.value_or(std::numeric_limits<double>::max());
  if (fits && (!whole || *number == std::floor(*number))) return {};
  std::string fault = fmt::format("{} is not a {}number", show(value), whole ? "whole " : "");
  if (rule.min && rule.max) fault += fmt::format(" from {} to {}", *rule.min, *rule.max);
  return rule.unit.empty() ? fault : fault + fmt::format(" ({})", rule.unit);
}

std::string find_digits_fault(const MemberRule& rule, const Value& value) {
  const bool digits = value.is_number_unsigned() || (value.is_number_integer() && value.get<long long>() >= 0) ||
                      (value.is_string() && is_number(value.get_ref<const std::string&>()));
  if (!digits) return fmt::format("{} is not a whole number of digits alone", show(value));
  return rule.max ? find_number_fault(rule, value, true) : "";
}

std::string describe_text(const MemberRule& rule) {
  std::string text = "not a text";
  if (rule.min && rule.max) text += fmt::format(" of {} to {} bytes", *rule.min, *rule.max);
  if (rule.forbidden == " ") return text + " without blanks";
  return rule.forbidden.empty() ? text : text + fmt::format(" without blanks and {}", rule.forbidden);
}

std::string find_choice_fault(const MemberRule& rule, const std::string& text) {
  if (rule.choices.empty()) return {};
  const std::vector<std::string> choices = split_words(rule.choices);
  if (std::ranges::find(choices, text) != choices.end()) return {};
  return fmt::format("{} is not one of {}", show(text), fmt::join(choices, ", "));
}

std::string find_text_fault(const MemberRule& rule, const std::string& text) {
  const auto refused = [&](unsigned char c) {
    return c <= ' ' || c == 0x7f || rule.forbidden.find(static_cast<char>(c)) != std::string_view::npos;
  };
  if (!rule.forbidden.empty() && std::ranges::any_of(trim(text), refused)) return describe_text(rule);
  const auto size = static_cast<double>(text.size());
  if (rule.min && size < *rule.min) return describe_text(rule);
  if (rule.max && size > *rule.max)
    return rule.secret ? describe_text(rule) : fmt::format("longer than {} bytes", *rule.max);
  // A label may have several lines.
  if (rule.max && has_controls(text)) return "has control characters";
  return find_choice_fault(rule, text);
}

// A text or, where it may be one, a number.
std::string find_name_fault(const MemberRule& rule, const Value& value, bool number) {
  if (!value.is_string() && !(number && value.is_number_integer()))
    return rule.secret ? describe_text(rule) : fmt::format("{} is {}", show(value), describe_text(rule));
  return find_text_fault(rule, to_text(value));
}

std::string find_word_fault(const Value& value) {
  const auto allowed = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("_.+-,").find(c) != std::string_view::npos;
  };
  const std::string text(trim(to_text(value)));
  const bool plain = value.is_string() || value.is_number();
  const bool begins = !text.empty() && std::string_view("_.+-,").find(text[0]) == std::string_view::npos;
  if (plain && begins && text.size() <= 100 && std::ranges::all_of(text, allowed)) return {};
  return fmt::format("{} is not a name", show(value));
}

std::string find_flag_fault(const Value& value) {
  constexpr std::array<std::string_view, 8> flags{"1", "true", "yes", "on", "0", "false", "no", "off"};
  if (value.is_boolean()) return {};
  const std::string text = value.is_structured() ? "" : to_text(value);
  return std::ranges::find(flags, trim(text)) != flags.end() ? "" : fmt::format("{} is not yes or no", show(value));
}

std::string find_url_fault(const MemberRule& rule, const Value& value) {
  if (!value.is_string()) return fmt::format("{} is not a text", show(value));
  const auto& url = value.get_ref<const std::string&>();
  if (has_controls(url)) return "has control characters";
  if (const std::string fault = find_text_fault(rule, url); !fault.empty()) return fault;
  return {};
}

std::string find_timetable_fault(const MemberRule& rule, const Value& value) {
  try {
    const IntegerList numbers = str2intl(value);
    if (trim(to_text(value)).find('*') != std::string_view::npos) return {};
    for (int number = static_cast<int>(*rule.max) + 1; number < 60; ++number)
      if (numbers.contains(number)) return fmt::format("{} is not a number from 0 to {}", number, *rule.max);
    return {};
  } catch (const Failure& failure) {
    return failure.what();
  }
}

std::string find_map_fault(const Value& value) {
  const auto is_plain = [](const Value& one) { return one.is_string() || one.is_number_unsigned(); };
  if (is_plain(value)) return {};
  if (value.is_structured() && std::ranges::all_of(value, is_plain)) return {};
  return fmt::format("{} is not a stream such as v:0, or a list of such", show(value));
}

std::string find_option_fault(const MemberRule& rule, const Value& value) {
  if (value.is_structured()) return fmt::format("{} is not a text, number or flag", show(value));
  const bool lines = rule.key.ends_with(".headers");
  return value.is_string() && !lines && has_controls(value.get_ref<const std::string&>()) ? "has control characters"
                                                                                          : "";
}

std::string find_fault_of_kind(const MemberRule& rule, const Value& value) {
  switch (rule.kind) {
    case Kind::text:
      return find_name_fault(rule, value, false);
    case Kind::name:
      return find_name_fault(rule, value, true);
    case Kind::digits:
      return find_digits_fault(rule, value);
    case Kind::word:
      return find_word_fault(value);
    case Kind::whole:
      return find_number_fault(rule, value, true);
    case Kind::number:
      return find_number_fault(rule, value, false);
    case Kind::flag:
      return find_flag_fault(value);
    case Kind::loop:
      return as_number(value) ? find_number_fault(rule, value, true) : find_flag_fault(value);
    case Kind::url:
      return find_url_fault(rule, value);
    case Kind::host:
      return read_host(value) ? "" : fmt::format("{} is not a host name or address", show(value));
    case Kind::port:
      return read_port(value) ? "" : fmt::format("{} is not a port (1 to 65535)", show(value));
    case Kind::timetable:
      return find_timetable_fault(rule, value);
    case Kind::map:
      return find_map_fault(value);
    case Kind::box:
      return value.is_string() || value.is_object() || !is_set(value) ? "" : show(value) + " is not x, y, w and h";
    case Kind::tags:
      return value.is_array() ? "" : show(value) + " is not a list of texts";
    case Kind::option:
      return find_option_fault(rule, value);
    case Kind::mapping:
    case Kind::numbered:
      return value.is_object() ? "" : "not a mapping";
    case Kind::ladder:
      return value.is_structured() ? "" : "not a mapping or a list";
  }
  return {};
}

}  // namespace

bool is_blank(const Value& value) {
  return value.is_null() || (value.is_string() && trim(value.get_ref<const std::string&>()).empty());
}

std::string find_member_fault(const MemberRule& rule, const Value& value) {
  if (value.is_string() && value.get_ref<const std::string&>().find('\0') != std::string::npos)
    return "a text can't hold a NUL character";
  const bool needs_mapping = rule.kind == Kind::mapping || rule.kind == Kind::numbered;
  if (value.is_null() || (is_blank(value) && !needs_mapping)) return {};
  return find_fault_of_kind(rule, value);
}

void convert_member(const MemberRule& rule, Value& value) {
  if (rule.key == "profile" && is_blank(value)) value = nullptr;
  const bool as_text = rule.kind == Kind::digits || rule.kind == Kind::name;
  if (as_text && value.is_number()) value = to_text(value);
}

}  // namespace weir
