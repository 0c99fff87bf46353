#pragma once

#include <optional>
#include <string>

#include "backend/collaborators/ffmpeg.h"
#include "backend/stream/runtime/segment_rates.h"

namespace weir {

/// The speeds between which a stream is left alone.
struct SpeedBand {
  double min = 0;
  double max = 0;
};

/// What the monitors of the current cycle found out, for whoever shows it.
struct Findings {
  SegmentRates segment_rates;
  std::optional<SpeedBand> speed_band;  ///< nothing while the speed is not watched
  std::optional<double> system_limit;   ///< MiB; nothing until it is learned, as the next
  std::optional<double> graphics_limit;
};

/// What the latest probe of an input told.
struct KnownInput {
  std::string url;  ///< that was probed; the document may have another one by now
  InputAnswer answer;
};

}  // namespace weir
