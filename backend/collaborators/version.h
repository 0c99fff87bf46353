#pragma once

#include "backend/collaborators/jsonconf.h"

namespace weir {

/// Brings a freshly loaded stream document up to the current layout.
class StreamConfigVersionControl {
 public:
  explicit StreamConfigVersionControl(JsonConf& conf) noexcept : conf_(conf) {}

  /// Changes the document in place: "min_speed", "max_speed", "max_sys_mem" and "max_gpu_mem" become "" where absent,
  /// so that speed and memory are watched with the default bounds.
  void update();

 private:
  JsonConf& conf_;
};

}  // namespace weir
