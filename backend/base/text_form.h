#pragma once

#include <cstddef>
#include <string>

#include "backend/base/value.h"

namespace weir {

/// The text form of a value as messages and URLs show it: null is None, booleans are True and False, integers are
/// decimal, fractions are the shortest form that reads back, with ".0" where integral, texts are as they are; lists and
/// mappings are their JSON text.
std::string to_text(const Value& value);

/// The JSON text of a value: indented when `pretty`. Never fails: bytes that are not UTF-8 become U+FFFD.
std::string to_json(const Value& value, bool pretty = false);

}  // namespace weir
