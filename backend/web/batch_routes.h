#pragma once

#include <functional>

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/router.h"
#include "backend/web/stream_routes.h"

namespace weir {

/// /api/batch and /api/stats: operations on many streams. A batch call answers for each id whether the operation was
/// accepted, and the reason where it was not.
class BatchRoutes {
 public:
  /// Both outlive the routes.
  BatchRoutes(StreamManager& manager, StreamRoutes& streams) : manager_(manager), streams_(streams) {}
  void add_to(Router& router);

 private:
  struct Batch;
  static Batch read_batch(const Request& request);
  Async<Response> start(Batch batch);
  Async<Response> stop(Batch batch);
  Async<Response> restart(Batch batch);
  Async<Response> remove(Batch batch);
  Async<Response> change(Batch batch, Value form);

  /// Gives the reason why an operation on a stream is not accepted; empty when it is.
  using Check = std::function<std::string(const Stream&)>;
  /// The result for each id.
  Value check_each(const std::vector<Value>& ids, const Check& check);
  Response stats(const Value& gpu);

  StreamManager& manager_;
  StreamRoutes& streams_;
};

/// Whether a log format holds no other fields than {id} and {label}, "{{" and "}}" standing for braces.
bool is_log_format(std::string_view text);

}  // namespace weir
