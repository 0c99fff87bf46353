#pragma once

#include "backend/web/events/event_hub.h"
#include "backend/web/events/metrics_text.h"
#include "backend/web/router.h"

namespace weir {

/// GET /api/events: server-sent events.
class EventRoutes {
 public:
  /// The manager outlives the routes.
  EventRoutes(const StreamManager& manager, FigureFeed feed);
  ~EventRoutes() { hub_->end(); }
  EventRoutes(const EventRoutes&) = delete;
  EventRoutes& operator=(const EventRoutes&) = delete;

  void add_to(Router& router);
  void add_metrics(MetricsText& text) const;

 private:
  Response subscribe(const Request& request);

  std::shared_ptr<EventHub> hub_;
};

}  // namespace weir
