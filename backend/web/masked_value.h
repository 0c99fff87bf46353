#pragma once

#include "backend/base/value.h"

namespace weir {

/// Masks the passwords in all texts of the value, at any depth. For everything that is shown but a stream's document.
void mask_value(Value& value);

}  // namespace weir
