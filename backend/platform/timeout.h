#pragma once

#include <chrono>
#include <string>

#include "backend/platform/async.h"

namespace weir {

/// Runs the body in a task of its own and waits for its end, at most for `limit`. True when the body has ended; false
/// when it was killed at the limit. Raises the body's failure. When the waiting task is killed, so is the body's, which
/// ends at its next wait: the body holds by value or shares whatever it uses.
Async<bool> run_at_most(std::string name, Async<> body, std::chrono::nanoseconds limit);

}  // namespace weir
