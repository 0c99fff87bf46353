#pragma once

#include <chrono>
#include <string>

#include "backend/platform/async.h"

namespace weir {

/// Runs the body in a task of its own and waits for its end, at most for `limit`: then it is killed and its end waited
/// for. False when that was so. A failure of the body is one of its task. When the waiting task is killed, so is the
/// body's.
Async<bool> run_at_most(std::string name, Async<> body, std::chrono::nanoseconds limit);

}  // namespace weir
