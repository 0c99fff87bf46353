#include "backend/collaborators/value.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <vector>

#include "backend/platform/failure.h"

namespace weir {

namespace {

/// Builds a value from the parser's events within the bounds of a document. Finds a repeated key by its hash: the
/// mapping itself would look through all its members for each new one.
class BoundedBuilder : public nlohmann::json_sax<Value> {
 public:
  Value take() { return std::move(root_); }

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(Value::number_integer_t value) override { return add(value); }
  bool number_unsigned(Value::number_unsigned_t value) override { return add(value); }
  bool number_float(Value::number_float_t value, const Value::string_t&) override { return add(value); }
  bool string(Value::string_t& value) override { return add(std::move(value)); }
  bool binary(Value::binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Value::object()); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Value::array()); }
  bool end_array() override { return close(); }

  bool key(Value::string_t& name) override {
    if (++members_ > most_members) throw ValueError(fmt::format("more than {} members", most_members));
    Container& container = open_.back();
    auto& object = container.value->get_ref<Value::object_t&>();
    const auto [known, added] = container.positions.emplace(name, object.size());
    if (added) static_cast<Value::object_t::Container&>(object).emplace_back(std::move(name), nullptr);
    container.member = known->second;
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
    const std::string_view text = error.what();
    const std::size_t prefix = text.find("] ");
    throw ValueError(std::string(prefix == std::string_view::npos ? text : text.substr(prefix + 2)));
  }

 private:
  struct Container {
    Value* value;
    std::unordered_map<std::string, std::size_t> positions;
    std::size_t member = 0;
  };

  Value& place(Value value) {
    if (open_.empty()) return root_ = std::move(value);
    Container& container = open_.back();
    if (container.value->is_array()) {
      if (++members_ > most_members) throw ValueError(fmt::format("more than {} members", most_members));
      return container.value->emplace_back(std::move(value));
    }
    auto& object = container.value->get_ref<Value::object_t&>();
    return (object.begin() + static_cast<std::ptrdiff_t>(container.member))->second = std::move(value);
  }

  bool add(Value value) {
    place(std::move(value));
    return true;
  }

  bool open(Value value) {
    if (open_.size() >= deepest_nesting) throw ValueError(fmt::format("nested deeper than {} levels", deepest_nesting));
    open_.push_back({&place(std::move(value)), {}});
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  Value root_;
  std::vector<Container> open_;
  std::size_t members_ = 0;
};

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

void count_members(const Value& value, std::size_t depth, std::size_t& members) {
  if (!value.is_structured()) return;
  if (depth >= deepest_nesting) throw ValueError(fmt::format("nested deeper than {} levels", deepest_nesting));
  members += value.size();
  if (members > most_members) throw ValueError(fmt::format("more than {} members", most_members));
  for (const Value& element : value) count_members(element, depth + 1, members);
}

}  // namespace

bool is_set(const Value& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>() != 0;
  if (value.is_string()) return !value.get_ref<const std::string&>().empty();
  return !value.empty();
}

bool is_number(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

int compare_numbers(std::string_view left, std::string_view right) {
  left.remove_prefix(std::min(left.find_first_not_of('0'), left.size()));
  right.remove_prefix(std::min(right.find_first_not_of('0'), right.size()));
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return left.compare(right);
}

std::string to_text(const Value& value) {
  if (value.is_null()) return "None";
  if (value.is_boolean()) return value.get<bool>() ? "True" : "False";
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_float()) return fraction_text(value.get<double>());
  if (value.is_number_unsigned()) return std::to_string(value.get<unsigned long long>());
  if (value.is_number_integer()) return std::to_string(value.get<long long>());
  return to_json(value);
}

Value make_mapping(std::size_t members) {
  Value mapping = Value::object();
  mapping.get_ref<Value::object_t&>().reserve(members);
  return mapping;
}

const Value& member(const Value& mapping, std::string_view name) {
  static const Value null;
  if (!mapping.is_object()) return null;
  const auto found = mapping.find(name);
  return found == mapping.end() ? null : *found;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
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

Value parse_json(std::string_view text) {
  if (text.size() > longest_document) throw ValueError(fmt::format("larger than {} bytes", longest_document));
  BoundedBuilder builder;
  Value::sax_parse(text.begin(), text.end(), &builder);
  return builder.take();
}

void check_bounds(const Value& value) {
  std::size_t members = 0;
  count_members(value, 0, members);
  if (to_json(value, true).size() > longest_document) {
    throw ValueError(fmt::format("larger than {} bytes", longest_document));
  }
}

std::string to_json(const Value& value, bool pretty) {
  return value.dump(pretty ? 2 : -1, ' ', false, Value::error_handler_t::replace);
}

}  // namespace weir
