#pragma once

#include <string>

#include "backend/services/transcoder/settings.h"

namespace weir {

/// The filters ahead of any scaling: deinterlacing, logo removal and the document's own. Empty when there are none.
/// Throws `ValueError`.
std::string make_cleaning_filters(const Settings& video);

struct VideoShape {
  long long width = 0;   ///< 0: as the input, or following the height
  long long height = 0;  ///< 0: as the input, or following the width
  double fps = 0;        ///< 0: as the input
  bool upload = false;   ///< to the encoder's graphics memory
};

/// The filters that set a rendition's size and frame rate. Never empty: a frame with an odd number of columns or rows
/// cannot be encoded as yuv420p and loses one.
std::string make_shape_filters(const VideoShape& shape);

}  // namespace weir
