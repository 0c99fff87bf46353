#pragma once

#include <utility>

#include "backend/platform/wait_queue.h"

namespace weir {

/// A counting semaphore of the tasks. A permit is given to the waiters in the order in which they came; a waiter runs
/// later, never inside the release. Not re-entrant.
class Semaphore {
 public:
  explicit Semaphore(int count) noexcept : count_(count) {}
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  /// A permit, given back at the end of its scope on every path.
  class [[nodiscard]] Guard {
   public:
    explicit Guard(Semaphore& semaphore) noexcept : semaphore_(&semaphore) {}
    Guard(Guard&& other) noexcept : semaphore_(std::exchange(other.semaphore_, nullptr)) {}
    Guard& operator=(Guard&&) = delete;
    ~Guard() {
      if (semaphore_) semaphore_->release();
    }

   private:
    Semaphore* semaphore_;
  };

  class Acquire final : public WaitQueue::Place {
   public:
    explicit Acquire(Semaphore& semaphore) noexcept : Place(semaphore.waiters_), semaphore_(semaphore) {}
    Guard await_resume();

   private:
    bool begin() override;

    Semaphore& semaphore_;
    bool taken_ = false;  ///< a free permit, without waiting
  };

  /// Waits for a permit. A free one is taken without yielding. A waiter that is killed takes none.
  Acquire acquire() noexcept { return Acquire(*this); }

 private:
  void release() noexcept;

  int count_;
  WaitQueue waiters_;
};

}  // namespace weir
