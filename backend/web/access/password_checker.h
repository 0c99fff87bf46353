#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "backend/platform/helper_thread.h"

namespace weir {

/// Hashes and verifies passwords on a thread of its own, one at a time: each takes a tenth of a second and 64 MiB.
class PasswordChecker {
 public:
  static constexpr int max_waiting = 8;

  /// Whether so many wait that no other may.
  bool is_full() const noexcept { return *waiting_ >= max_waiting; }
  /// `hash`: the user's; empty where there is no such user, which takes as long.
  Async<bool> check(std::string hash, std::string password);
  /// See `hash_password`.
  Async<std::string> hash(std::string password);

 private:
  std::shared_ptr<std::atomic<int>> waiting_ = std::make_shared<std::atomic<int>>(0);
  HelperThread thread_;
};

}  // namespace weir
