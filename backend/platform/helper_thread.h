#pragma once

#include <functional>
#include <memory>

#include "backend/platform/async.h"

namespace boost::asio {
class thread_pool;
}  // namespace boost::asio

namespace weir {

/// Runs a blocking call on a helper thread while the task waits, and raises what it throws. The work is copied to the
/// thread, must touch nothing of the loop, and runs to its end even if the task is killed meanwhile. One call is
/// served at a time, in order.
Async<> on_helper_thread(std::function<void()> work);

/// A helper thread beside the loop's, for a service whose blocking calls must hold up no others. The thread begins with
/// the first call. Ends before the loop; calls that have not begun by then are dropped, one under way is waited for.
class HelperThread {
 public:
  HelperThread();
  ~HelperThread();
  HelperThread(const HelperThread&) = delete;
  HelperThread& operator=(const HelperThread&) = delete;

  /// As `on_helper_thread`.
  Async<> run(std::function<void()> work);

 private:
  std::unique_ptr<boost::asio::thread_pool> thread_;
};

}  // namespace weir
