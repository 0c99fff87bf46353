#pragma once

#include "backend/base/value.h"

namespace weir {

/// Hides the passwords in all texts of the value, at any depth: what people are shown, unlike a stream's own document.
void mask_value(Value& value);

}  // namespace weir
