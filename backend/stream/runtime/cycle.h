#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "backend/collaborators/journal.h"
#include "backend/platform/clock.h"
#include "backend/stream/runtime/error_line.h"

namespace weir {

/// One cycle of a stream: the launch of its transcoder and its run.
struct Cycle {
  long long number = 0;  ///< from 1 on since the stream was loaded
  int input = 0;         ///< the input in use, or asked for while none is
  std::optional<pid_t> process = {};
  std::optional<TimePoint> launched = {};
  std::optional<TimePoint> running = {};  ///< since the transcoder's first progress
  std::optional<int> exit_status = {};    ///< of the transcoder once it was reaped; the negative number of a signal
  bool has_printed = false;               ///< whether the transcoder printed anything but progress
  ErrorLine last_error = {};

  /// Takes note of a line that is no progress.
  void look(std::string_view line) {
    has_printed = true;
    last_error.look(line);
  }
};

/// Why somebody ends a cycle.
struct Reason {
  Cause cause = Cause::operator_asked;
  std::string text = {};  ///< what was wrong
  std::string by = {};    ///< who asked
};

/// Seconds after which a stream whose supervision failed is started again; `failures` counts from 1.
double retry_delay(int failures);

}  // namespace weir
