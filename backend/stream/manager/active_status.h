#pragma once

#include "backend/base/value.h"

namespace weir {

/// Whether the status word means that a supervision task is at work: "starting", "running" or "restarting".
bool is_active(const Value& status);

}  // namespace weir
