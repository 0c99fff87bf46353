#include "backend/platform/poller.h"

#include <sys/epoll.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include "backend/platform/failure.h"
#include "backend/platform/loop.h"

namespace weir {

namespace asio = boost::asio;

namespace {

Descriptor create_epoll() {
  Descriptor epoll(::epoll_create1(EPOLL_CLOEXEC));
  if (!epoll) throw_errno("epoll_create1");
  return epoll;
}

}  // namespace

/// The one-shot instance between: it turns readable once per arming when a watched descriptor is readable.
struct Poller::Gate {
  Gate(asio::io_context& context, int watched) : descriptor(context, ::epoll_create1(EPOLL_CLOEXEC)) {
    epoll_event event{};
    event.data.fd = watched;
    if (::epoll_ctl(descriptor.native_handle(), EPOLL_CTL_ADD, watched, &event) != 0) throw_errno("epoll_ctl");
  }

  void arm(int watched) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.fd = watched;
    if (::epoll_ctl(descriptor.native_handle(), EPOLL_CTL_MOD, watched, &event) != 0) throw_errno("epoll_ctl");
  }

  void consume() {
    epoll_event event;
    ::epoll_wait(descriptor.native_handle(), &event, 1, 0);
  }

  asio::posix::stream_descriptor descriptor;
};

Poller::Poller(asio::io_context& context, Timers& timers, const Clock& clock)
    : timers_(timers), clock_(clock), watched_(create_epoll()), gate_(std::make_unique<Gate>(context, watched_.get())) {
  arm_gate();
}

Poller::~Poller() {
  if (holding_) timers_.cancel(hold_entry_);
}

bool Poller::poll() {
  // What does not fit is found at the next look: the kernel hands out level-triggered descriptors in turn.
  std::array<epoll_event, 1024> events;
  const int count = ::epoll_wait(watched_.get(), events.data(), static_cast<int>(events.size()), 0);
  for (int i = 0; i < count; ++i) static_cast<ReadWatch*>(events[static_cast<std::size_t>(i)].data.ptr)->notify();
  return count > 0;
}

void Poller::add(ReadWatch& watch) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = &watch;
  if (::epoll_ctl(watched_.get(), EPOLL_CTL_ADD, watch.fd_, &event) != 0) throw_errno("epoll_ctl");
}

void Poller::remove(ReadWatch& watch) { ::epoll_ctl(watched_.get(), EPOLL_CTL_DEL, watch.fd_, nullptr); }

void Poller::arm_gate() {
  gate_->arm(watched_.get());
  gate_->descriptor.async_wait(asio::posix::descriptor_base::wait_read, [this](const boost::system::error_code& error) {
    if (error) return;
    gate_->consume();
    look();
  });
}

void Poller::look() {
  if (!poll()) return arm_gate();
  holding_ = true;
  hold_entry_ = timers_.add(round_up(clock_.now() + std::chrono::nanoseconds(1), hold), *this);
}

void Poller::expire() {
  holding_ = false;
  look();
}

ReadWatch::~ReadWatch() {
  if (added_) Loop::current().poller().remove(*this);
}

// Removes a readable descriptor that no task waits for, or every poll would report it; `begin` adds it again.
void ReadWatch::notify() {
  if (!waiters_.empty()) return waiters_.wake_all();
  Loop::current().poller().remove(*this);
  added_ = false;
}

bool ReadWatch::Readable::begin() {
  if (!watch_.added_) Loop::current().poller().add(watch_);
  watch_.added_ = true;
  return Place::begin();
}

}  // namespace weir
