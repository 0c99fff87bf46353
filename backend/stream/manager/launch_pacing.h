#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "backend/platform/async.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

/// How many streams may be launched now, with `under_way` launches and that many idle processors: one for each of
/// these, and at most ten under way.
int count_launches(int under_way, double idle_processors);

/// Launches the streams that wait for their first launch as early as the processors allow, in this order, and looks
/// ten times a second. A launch is under way until the stream runs, fails, or 3 s have passed. Ends when none waits;
/// a stream whose own time comes, or that is stopped, is not held back. `look_at_processors` tells how many are idle.
Async<> hasten_launches(std::vector<std::shared_ptr<Stream>> streams, std::function<double()> look_at_processors);

}  // namespace weir
