#pragma once

#include <functional>
#include <string>

#include "backend/base/value.h"
#include "backend/platform/semaphore.h"
#include "backend/web/router.h"

namespace weir {

/// What an input holds. Throws an ordinary failure with the reason when it can't be read.
using ProbeFunction = std::function<Async<Value>(std::string url)>;

/// /healthz, /readyz, /api/version and /api/probe: the server itself.
class ServerRoutes {
 public:
  explicit ServerRoutes(ProbeFunction probe) : probe_(std::move(probe)) {}
  void add_to(Router& router);

  /// Whether the streams are loaded and the server is not ending. False at first.
  void set_ready(bool ready) noexcept { ready_ = ready; }
  bool ready() const noexcept { return ready_; }

 private:
  static constexpr int max_probes = 4;

  Response readiness() const;
  Async<Response> probe(std::string url);

  ProbeFunction probe_;
  Semaphore probes_{max_probes};
  bool ready_ = false;
};

}  // namespace weir
