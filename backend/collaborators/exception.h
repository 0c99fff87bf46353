#pragma once

#include <exception>

namespace weir {

/// Delivered to a stream's supervision task: end this run of the transcoder and launch the next at once. A task that
/// has not run yet is about to launch anyway.
struct GreenletRestartException : std::exception {
  static constexpr int kill_rank = 1;
  static constexpr bool spares_unstarted = true;
  const char* what() const noexcept override { return "restart"; }
};

/// Delivered to a stream's supervision task: end this run and stop. Never replaced by a restart.
struct GreenletStopException : std::exception {
  static constexpr int kill_rank = 2;
  static constexpr bool spares_unstarted = false;
  const char* what() const noexcept override { return "stop"; }
};

}  // namespace weir
