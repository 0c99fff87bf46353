#pragma once

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/router.h"

namespace weir {

/// /api/batch and /api/stats: operations on many streams.
class BatchRoutes {
 public:
  /// The manager outlives the routes.
  explicit BatchRoutes(StreamManager& manager) : manager_(manager) {}
  void add_to(Router& router);

 private:
  struct Batch;
  static Batch read_batch(const Request& request);
  Async<Response> start(Batch batch);
  Async<Response> stop(Batch batch);
  Async<Response> restart(Batch batch);
  Response stats(const Value& gpu);

  StreamManager& manager_;
};

/// Whether a log format holds no other fields than {id} and {label}, "{{" and "}}" standing for braces.
bool is_log_format(std::string_view text);

}  // namespace weir
