#pragma once

#include <exception>

namespace weir {

/// Delivered to a stream's supervision task: end this run of the transcoder and launch the next at once.
struct GreenletRestartException : std::exception {
  static constexpr int kill_rank = 1;
  const char* what() const noexcept override { return "restart"; }
};

/// Delivered to a stream's supervision task: end this run and stop. Never replaced by a restart.
struct GreenletStopException : std::exception {
  static constexpr int kill_rank = 2;
  const char* what() const noexcept override { return "stop"; }
};

}  // namespace weir
