#pragma once

#include <functional>

#include "backend/platform/async.h"

namespace weir {

/// Runs a blocking call on a helper thread while the task waits, and raises what it throws. The work is copied to the
/// thread, must touch nothing of the loop, and runs to its end even if the task is killed meanwhile. One call is
/// served at a time, in order.
Async<> on_helper_thread(std::function<void()> work);

}  // namespace weir
