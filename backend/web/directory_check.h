#pragma once

#include <optional>
#include <string>

#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/semaphore.h"

namespace weir {

/// Whether files can be written in a directory. A look is at most each 5 s, off the loop and bounded in time: the disk
/// may be full, read-only or not answer.
class DirectoryCheck {
 public:
  /// Why nothing can be written; empty when it can.
  Async<std::string> find_fault(std::string directory);

 private:
  static Async<std::string> look(std::string directory);

  Semaphore turns_{1};
  std::string fault_;
  std::optional<TimePoint> looked_;
};

}  // namespace weir
