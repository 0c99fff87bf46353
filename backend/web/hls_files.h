#pragma once

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/router.h"

namespace weir {

/// /{id}/{file}: serves the playlists and segments of the streams, to players on pages of any site, and reports who
/// fetches them.
class HlsFiles {
 public:
  /// The manager outlives the routes.
  explicit HlsFiles(StreamManager& manager) : manager_(manager) {}
  void add_to(Router& router);

 private:
  Response read(const Request& request, const PathParameters& parameters);
  void count_client(const Stream& stream, const Request& request);

  StreamManager& manager_;
};

}  // namespace weir
