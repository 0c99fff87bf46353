#pragma once

#include <utility>

#include "backend/platform/task.h"

namespace weir {

/// The tasks that wait for one thing, first come first served. A wait that is killed or destroyed leaves the queue by
/// itself; the queue need not outlive the waits.
class WaitQueue {
  /// A member of a ring; alone at first. Leaves its ring when it is destroyed.
  struct Link {
    Link() noexcept = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() { unlink(); }

    void insert_before(Link& other) noexcept {
      previous = other.previous;
      next = &other;
      previous->next = next->previous = this;
    }
    void unlink() noexcept {
      previous->next = next;
      next->previous = previous;
      previous = next = this;
    }

    Link* previous = this;
    Link* next = this;
  };

 public:
  /// One task's place in a queue: the base of a wait that ends by being woken. A derived class calls `finish` in
  /// `await_resume`.
  class Place : public Wait, private Link {
   protected:
    explicit Place(WaitQueue& queue) noexcept : queue_(queue) {}
    ~Place() = default;

    bool begin() override {
      insert_before(queue_.head_);
      return true;
    }
    bool cancel() noexcept override {
      unlink();
      return true;
    }
    /// Whether the wait ended by being woken, not by a kill that came before.
    bool woken() const noexcept { return woken_; }

   private:
    friend class WaitQueue;
    WaitQueue& queue_;
    bool woken_ = false;
  };

  /// A wait for nothing but being woken.
  class Turn final : public Place {
   public:
    explicit Turn(WaitQueue& queue) noexcept : Place(queue) {}
    void await_resume() { finish(); }
  };
  Turn wait() noexcept { return Turn(*this); }

  bool empty() const noexcept { return head_.next == &head_; }

  /// Ends the longest wait, if there is one; its task runs later.
  void wake_one() noexcept {
    if (empty()) return;
    Place& first = static_cast<Place&>(*head_.next);
    first.unlink();
    first.woken_ = true;
    first.complete();
  }

  void wake_all() noexcept {
    while (!empty()) wake_one();
  }

 private:
  Link head_;
};

}  // namespace weir
