#include "backend/platform/semaphore.h"

namespace weir {

bool Semaphore::Acquire::begin() {
  if (semaphore_.count_ == 0) return Place::begin();
  --semaphore_.count_;
  taken_ = true;
  return false;
}

Semaphore::Guard Semaphore::Acquire::await_resume() {
  if (killed() && (taken_ || woken())) semaphore_.release();
  finish();
  return Guard(semaphore_);
}

// Hands the permit to the first waiter directly: no other task can take it in between.
void Semaphore::release() noexcept {
  if (waiters_.empty()) {
    ++count_;
  } else {
    waiters_.wake_one();
  }
}

}  // namespace weir
