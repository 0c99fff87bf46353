#pragma once

#include "backend/platform/semaphore.h"
#include "backend/web/events/metrics_text.h"
#include "backend/web/events/webhooks.h"
#include "backend/web/router.h"

namespace weir {

/// /api/webhooks: list, add, read, change, delete, test.
class WebhookRoutes {
 public:
  /// Throws as `Webhooks`.
  explicit WebhookRoutes(WebhookSettings settings) : webhooks_(std::move(settings)) {}
  void add_to(Router& router);
  void add_metrics(MetricsText& text) const;

  Webhooks& webhooks() noexcept { return webhooks_; }
  /// Held while they change.
  Semaphore& changes() noexcept { return changes_; }

 private:
  Response list() const;
  Response read(const std::string& id) const;
  Async<Response> add(Value form, std::string by);
  Async<Response> change(std::string id, Value form, std::string by);
  Async<Response> remove(std::string id, std::string by);
  Async<Response> test(std::string id);

  /// Throws `HttpError` with 404.
  std::shared_ptr<WebhookTarget> find(const std::string& id) const;
  /// Throws `HttpError` with 404, or 409 for one of the settings.
  std::shared_ptr<WebhookTarget> find_own(const std::string& id) const;

  Webhooks webhooks_;
  Semaphore changes_{1};
  Semaphore tests_{1};
};

}  // namespace weir
