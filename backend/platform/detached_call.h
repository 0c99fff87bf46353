#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "backend/platform/async.h"

namespace weir {

/// Blocking calls that may never return, as on a network file system whose server is gone: each on a thread of its own,
/// one at a time. Neither the loop nor the end of the process waits for one.
class DetachedCall {
 public:
  /// Waits for the end of the work for `timeout` at most. False when it has not ended by then; when an earlier one
  /// still has not; and when there is no thread for it. The work owns all that it touches, touches nothing of the loop
  /// and throws nothing.
  Async<bool> run(std::function<void()> work, std::chrono::nanoseconds timeout);

 private:
  std::shared_ptr<std::atomic<bool>> busy_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace weir
