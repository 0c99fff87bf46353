#pragma once

#include <optional>
#include <string_view>

namespace weir {

/// Whether a text consists of decimal digits only, at least one. Such a key numbers an input or output.
bool is_number(std::string_view text);

/// Orders two numbers given as digits by their numeric value, whatever their length: negative, zero or positive.
int compare_numbers(std::string_view left, std::string_view right);

/// A decimal integer with an optional sign and white space around it; nothing for any other text and beyond 64 bits.
std::optional<long long> parse_integer(std::string_view text);

/// A floating-point number with an optional sign and white space around it, "inf" and "nan" included; nothing for any
/// other text.
std::optional<double> parse_float(std::string_view text);

}  // namespace weir
