#pragma once

#include <memory>
#include <string>

#include "backend/platform/semaphore.h"
#include "backend/web/api/import.h"
#include "backend/web/router.h"

namespace weir {

/// /api/export and /api/import: all profiles, streams and webhooks as one JSON text.
class BackupRoutes {
 public:
  /// Both outlive the routes. `changes` is held while documents or profiles change, `webhook_changes` while webhooks
  /// do.
  BackupRoutes(Import::Targets targets, Semaphore& changes, Semaphore& webhook_changes)
      : targets_(targets), changes_(changes), webhook_changes_(webhook_changes) {}
  void add_to(Router& router);

 private:
  Async<Response> write(bool with_secrets);
  Async<Response> read(std::shared_ptr<const std::string> body, bool replaces, bool is_trial, std::string by);

  const Import::Targets targets_;
  Semaphore& changes_;
  Semaphore& webhook_changes_;
};

}  // namespace weir
