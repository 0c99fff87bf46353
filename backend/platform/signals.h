#pragma once

#include <initializer_list>
#include <memory>

#include "backend/platform/async.h"

namespace weir {

/// The process's signals as something a task can wait for. While it lives the signals do nothing else.
class Signals {
 public:
  explicit Signals(std::initializer_list<int> signals);
  ~Signals();

  /// Waits for the next of the signals; one that came before is not missed. Returns its number.
  Async<int> next();

 private:
  struct Set;
  std::unique_ptr<Set> set_;
};

}  // namespace weir
