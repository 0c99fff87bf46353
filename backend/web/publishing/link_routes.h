#pragma once

#include "backend/platform/semaphore.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/publishing/publishing_links.h"
#include "backend/web/router.h"

namespace weir {

/// /api/streams/{id}/links: who may watch a stream whose "access" is "link".
class LinkRoutes {
 public:
  /// All outlive the routes. `changes` is held while links change.
  LinkRoutes(StreamManager& manager, PublishingLinks& links, Semaphore& changes)
      : manager_(manager), links_(links), changes_(changes) {}
  void add_to(Router& router);

 private:
  std::shared_ptr<Stream> find(const std::string& id);
  Response list(const std::string& id);
  Async<Response> add(std::string id, Value form, std::string host, std::string by);
  Async<Response> revoke(std::string id, std::string link, std::string by);
  Value list_urls(const Stream& stream, const std::string& token, const std::string& host);

  StreamManager& manager_;
  PublishingLinks& links_;
  Semaphore& changes_;
};

}  // namespace weir
