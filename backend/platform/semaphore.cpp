#include "backend/platform/semaphore.h"

namespace weir {

Semaphore::Acquire::~Acquire() {
  if (waiting()) semaphore_.waiters_.erase(place_);
}

bool Semaphore::Acquire::begin() {
  if (semaphore_.count_ > 0) {
    --semaphore_.count_;
    granted_ = true;
    return false;
  }
  place_ = semaphore_.waiters_.insert(semaphore_.waiters_.end(), this);
  return true;
}

bool Semaphore::Acquire::cancel() noexcept {
  semaphore_.waiters_.erase(place_);
  return true;
}

Semaphore::Guard Semaphore::Acquire::await_resume() {
  if (killed() && granted_) semaphore_.release();
  finish();
  return Guard(semaphore_);
}

void Semaphore::release() noexcept {
  if (waiters_.empty()) {
    ++count_;
    return;
  }
  Acquire* next = waiters_.front();
  waiters_.pop_front();
  next->granted_ = true;
  next->complete();
}

}  // namespace weir
