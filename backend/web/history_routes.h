#pragma once

#include "backend/collaborators/history.h"
#include "backend/web/router.h"
#include "backend/web/server_stream_manager.h"

namespace weir {

/// /api/history and what lies below the streams: their histories and timelines.
class HistoryRoutes {
 public:
  /// Both outlive the routes.
  HistoryRoutes(ServerStreamManager& manager, History& history) : manager_(manager), history_(history) {}
  void add_to(Router& router);

  /// The member "history" of a stream's record, as JSON.
  void append_summary(std::string& json, const Stream& stream) const;

 private:
  /// Throws `HttpError` with 503.
  Async<std::vector<HistoryEntry>> ask(HistoryQuery query);
  Async<Response> list(HistoryQuery query);
  Async<Response> show_timeline(HistoryQuery query, std::chrono::hours length);
  long long find(const std::string& id) const;

  ServerStreamManager& manager_;
  History& history_;
};

/// The query that the parameters "before", "after", "limit", "kind" and "cause" of a request make. Throws `HttpError`
/// with 400 and the parameter's name.
HistoryQuery read_history_query(const Request& request);

}  // namespace weir
