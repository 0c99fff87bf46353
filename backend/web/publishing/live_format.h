#pragma once

#include <memory>
#include <string_view>

#include "backend/web/publishing/live_ring.h"

namespace weir {

/// Cuts what a transcoder sends into pieces that a viewer can begin with, and joins the runs of a transcoder to one
/// output.
class LiveFormat {
 public:
  virtual ~LiveFormat() = default;
  /// Another run begins; what the last one left unfinished is dropped.
  virtual void begin_run() = 0;
  /// Appends what viewers get of these bytes. Accepts any bytes, cut anywhere.
  virtual void add(std::string_view bytes, LiveChunk& chunk) = 0;
};

/// `format` as `get_http_format` gives it.
std::unique_ptr<LiveFormat> make_live_format(std::string_view format);

}  // namespace weir
