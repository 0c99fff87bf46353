#pragma once

#include <functional>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/semaphore.h"
#include "backend/web/router.h"

namespace weir {

/// What is there at the address of an input. Throws an ordinary failure with the reason when there is nothing.
using ProbeFunction = std::function<Async<Value>(std::string url)>;

/// /healthz, /readyz and /api/probe: the server itself.
class ServerRoutes {
 public:
  explicit ServerRoutes(ProbeFunction probe) : probe_(std::move(probe)) {}
  void add_to(Router& router);

  /// Whether the streams are loaded and the server does not end yet. False at first.
  void set_ready(bool ready) noexcept { ready_ = ready; }
  bool ready() const noexcept { return ready_; }

 private:
  static constexpr int most_probes = 4;

  Async<Response> live();
  Async<Response> readiness();
  Async<Response> probe(const Request& request);

  ProbeFunction probe_;
  Semaphore probes_{most_probes};
  bool ready_ = false;
};

}  // namespace weir
