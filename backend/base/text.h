#pragma once

#include <string>
#include <string_view>

namespace weir {

/// Whether the character is white space of ASCII.
constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The UTF-8 text without the white space of Unicode at both ends.
std::string_view trim(std::string_view text);

/// The text with a backslash before each of the special characters.
std::string escape(std::string_view text, std::string_view specials);

}  // namespace weir
