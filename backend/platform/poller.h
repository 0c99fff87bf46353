#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "backend/platform/clock.h"
#include "backend/platform/descriptor.h"
#include "backend/platform/timers.h"
#include "backend/platform/wait_queue.h"

namespace boost::asio {
class io_context;
}

namespace weir {

class ReadWatch;

/// Watches the descriptors of the children in batches: after one of them was readable it looks again only
/// `hold` later, at all of them at once, so that thousands of pipes cost at most 25 wake-ups a second.
///
/// The descriptors are in an epoll instance of their own. The loop watches it through a second one, one-shot, between:
/// Asio watches edge-triggered and would wake for every single pipe.
class Poller final : private Timer {
 public:
  static constexpr std::chrono::milliseconds hold{40};

  Poller(boost::asio::io_context& context, Timers& timers, const Clock& clock);
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// Completes the waits of all descriptors that are readable now. Returns whether there were any.
  bool poll();

 private:
  friend class ReadWatch;
  struct Gate;

  void add(ReadWatch& watch);
  void remove(ReadWatch& watch);
  void arm_gate();
  void look();
  void expire() override;

  Timers& timers_;
  const Clock& clock_;
  Descriptor watched_;
  std::unique_ptr<Gate> gate_;
  bool holding_ = false;
  Timers::Entry hold_entry_;
};

/// Readability of one descriptor. Does not own the descriptor, which has to outlive it.
class ReadWatch {
 public:
  explicit ReadWatch(int fd) noexcept : fd_(fd) {}
  ~ReadWatch();
  ReadWatch(const ReadWatch&) = delete;
  ReadWatch& operator=(const ReadWatch&) = delete;

  class Readable final : public WaitQueue::Place {
   public:
    explicit Readable(ReadWatch& watch) noexcept : Place(watch.waiters_), watch_(watch) {}
    void await_resume() { finish(); }

   private:
    bool begin() override;
    ReadWatch& watch_;
  };

  /// Waits until a read would not block: data, end or error.
  Readable readable() noexcept { return Readable(*this); }
  /// Whether a task waits for it, and nothing was readable when the loop looked last.
  bool awaited() const noexcept { return !waiters_.empty(); }

 private:
  friend class Poller;
  void notify();

  int fd_;
  bool added_ = false;
  WaitQueue waiters_;
};

}  // namespace weir
