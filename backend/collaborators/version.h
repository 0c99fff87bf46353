#pragma once

#include "backend/collaborators/jsonconf.h"

namespace weir {

/// Brings a freshly loaded stream document up to the current layout.
class StreamConfigVersionControl {
 public:
  explicit StreamConfigVersionControl(JsonConf& conf) noexcept : conf_(conf) {}

  /// Changes the document in place: "min_speed" and "max_speed" become "" where absent, so that the default band is
  /// watched.
  void update();

 private:
  JsonConf& conf_;
};

}  // namespace weir
