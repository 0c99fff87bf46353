#pragma once

#include <string>

namespace weir {

/// The text with every byte that is not part of valid UTF-8 replaced by U+FFFD.
std::string to_valid_utf8(std::string text);

}  // namespace weir
