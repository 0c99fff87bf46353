#pragma once

#include <optional>
#include <string>
#include <unordered_set>

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/publishing/publishing_links.h"
#include "backend/web/request.h"
#include "backend/web/router.h"

namespace weir {

/// Who may watch which stream. What a stream publishes is for everybody, unless its document says "access": "link":
/// then the address has the token of a link, "/{id}/{token}/{file}" and "/stream/{id}/{token}/{filename}".
class PublishingGate {
 public:
  /// Both outlive the gate.
  PublishingGate(StreamManager& manager, const PublishingLinks& links) : manager_(manager), links_(links) {}

  /// /{id}/access and /{id}/{token}/access: 204 or 403, for a proxy that serves the files itself.
  void add_to(Router& router);

  /// The refusal, when the request asks for something that a stream publishes and may not have it. A valid token is
  /// taken out of the path: what follows sees the address that has none.
  std::optional<Response> refuse(Request& request);

 private:
  std::optional<Response> refuse_without_token(const std::string& id);

  StreamManager& manager_;
  const PublishingLinks& links_;
  std::unordered_set<long long> open_;  ///< streams that were open when somebody asked last; some are deleted
};

}  // namespace weir
