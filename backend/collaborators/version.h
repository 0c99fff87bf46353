#pragma once

#include "backend/collaborators/jsonconf.h"

namespace weir {

inline constexpr const char* logo_queue_size_key = "video.cvdelogo.buffer_queue_size";

/// Brings a freshly loaded stream document up to the current layout.
class StreamConfigVersionControl {
 public:
  explicit StreamConfigVersionControl(JsonConf& conf) noexcept : conf_(conf) {}

  /// Changes the document in place: "min_speed", "max_speed", "max_sys_mem", "max_gpu_mem" and, beside a
  /// "video.cvdelogo.filename", "video.cvdelogo.buffer_queue_size" become "" where absent or null: the monitors of
  /// speed and memory take "" for the default and fail on null.
  void update();

 private:
  JsonConf& conf_;
};

}  // namespace weir
