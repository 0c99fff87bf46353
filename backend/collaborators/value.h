#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace weir {

/// A JSON value whose objects keep the order of their members ("ordered mappings").
using Value = nlohmann::ordered_json;

/// Whether a field counts as given: not null, false, zero, nor an empty text, list or mapping.
bool is_set(const Value& value);

/// Whether a text consists of decimal digits only, at least one. Such a key numbers an input or output.
bool is_number(std::string_view text);

/// Orders two numbers given as digits by their numeric value, whatever their length: negative, zero or positive.
int compare_numbers(std::string_view left, std::string_view right);

/// The text form of a value as messages and URLs show it: null is None, booleans are True and False, integers are
/// decimal, fractions are the shortest form that reads back, with ".0" where integral, texts are as they are; lists and
/// mappings are their JSON text.
std::string to_text(const Value& value);

/// An empty mapping with room for that many members: one that grows copies its keys.
Value make_mapping(std::size_t members);

/// The member of a mapping; null when it is absent or `mapping` is none.
const Value& member(const Value& mapping, std::string_view name);

/// Whether the character is white space of ASCII.
constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The text without white space at both ends.
std::string_view trim(std::string_view text);

/// A decimal integer with an optional sign and white space around it; nothing for any other text and beyond 64 bits.
std::optional<long long> parse_integer(std::string_view text);

/// A floating-point number with an optional sign and white space around it, "inf" and "nan" included; nothing for any
/// other text.
std::optional<double> parse_float(std::string_view text);

/// Bounds of a document: its text's size in bytes, the members of all its mappings together, and its nesting.
inline constexpr std::size_t longest_document = 1 << 20;
inline constexpr std::size_t most_members = 10'000;
inline constexpr std::size_t deepest_nesting = 64;

/// Reads a JSON text within those bounds, in time linear in its size. Throws `ValueError` with a message for a person:
/// what is wrong and where.
Value parse_json(std::string_view text);

/// Throws `ValueError` when the value's JSON text could not be read again because of those bounds.
void check_bounds(const Value& value);

/// The JSON text of a value: indented when `pretty`. Never fails: bytes that are not UTF-8 become U+FFFD.
std::string to_json(const Value& value, bool pretty = false);

}  // namespace weir
