#pragma once

#include <optional>
#include <string_view>

#include "backend/base/value.h"
#include "backend/platform/clock.h"

namespace weir {

/// The latest progress figures of one run of a transcoder.
///
/// Until a progress line sets them, figures are integers; fps goes back to the integer 0 with a line that has none.
class StreamStats {
 public:
  /// Takes the figures of a progress line of the transcoder. True when `line` is one and all its figures could be read.
  /// False changes nothing for any other line; the figures before an unreadable one are taken. A negative media time
  /// becomes 0 and gives false. Throws `OverflowError` for a time beyond any integer. `line` may hold anything.
  bool update(std::string_view line);

  struct Figure {
    double value = 0;
    bool integer = true;  ///< shown without a fraction
  };
  static Value to_value(Figure figure);

  Figure fps;             ///< frames per second
  double quality = -1.0;  ///< the encoder's q value
  Figure bitrate;         ///< kbit/s
  long long time = 0;     ///< whole seconds of media transcoded
  Figure speed;           ///< multiple of real time

  // Not among the figures of the information record.
  double media_seconds = 0;           ///< as `time`, with the fraction
  std::optional<TimePoint> taken_at;  ///< when the latest line came; set by whoever reads the lines
};

}  // namespace weir
