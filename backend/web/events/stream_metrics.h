#pragma once

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/events/metrics_text.h"
#include "backend/web/events/stream_counters.h"
#include "backend/web/now/sampler.h"

namespace weir {

/// Adds the metrics of all streams. Others have their turn between parts of the streams. Counters and sampler outlive
/// the call.
Async<> add_stream_metrics(std::shared_ptr<MetricsText> text, std::vector<std::shared_ptr<Stream>> streams,
                           const StreamCounters& counters, const Sampler& sampler);

}  // namespace weir
