#pragma once

#include "backend/base/value.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/broken_stream_files.h"
#include "backend/web/router.h"

namespace weir {

/// /api/streams: the streams and what one does with each.
class StreamRoutes {
 public:
  /// Both outlive the routes.
  StreamRoutes(StreamManager& manager, BrokenStreamFiles& broken_files)
      : manager_(manager), broken_files_(broken_files) {}
  void add_to(Router& router);

 private:
  /// An operation of the manager on one stream.
  using Control = Async<bool> (StreamManager::*)(const Value& stream_id);

  Async<Response> list(const Request& request) const;
  Response read(const Request& request, const Value& id);
  Async<Response> add(const Request& request);
  Async<Response> change(const Request& request, Value id);
  Async<Response> remove(Value id);
  Async<Response> control(Control operation, Value id);
  Response read_log(const Value& id);
  Response delete_log(const Value& id);
  Response read_config(const Value& id);
  Response read_urls(const Request& request, const Value& id);
  Response add_client(const Request& request, const Value& id);
  Response remove_client(const Request& request, const Value& id);

  /// Throws `HttpError` with 404.
  std::shared_ptr<Stream> find(const Value& id);
  void add_or_clean_up(const Value& form, const std::string& path);

  StreamManager& manager_;
  BrokenStreamFiles& broken_files_;
};

}  // namespace weir
