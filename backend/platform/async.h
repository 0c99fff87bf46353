#pragma once

#include <concepts>
#include <coroutine>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace weir {

template <class T>
class Async;

namespace detail {

/// Hands control back to the awaiting coroutine when a callee has ended.
struct FinalAwaiter {
  bool await_ready() const noexcept { return false; }
  template <class Promise>
  std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> ended) const noexcept {
    return ended.promise().continuation;
  }
  void await_resume() const noexcept {}
};

struct AsyncPromiseBase {
  std::coroutine_handle<> continuation = std::noop_coroutine();
  std::exception_ptr failure;

  std::suspend_always initial_suspend() const noexcept { return {}; }
  FinalAwaiter final_suspend() const noexcept { return {}; }
  void unhandled_exception() noexcept { failure = std::current_exception(); }
};

template <class T>
struct AsyncPromise : AsyncPromiseBase {
  std::optional<T> value;

  Async<T> get_return_object() noexcept;
  template <std::convertible_to<T> U>
  void return_value(U&& result) {
    value.emplace(std::forward<U>(result));
  }
  T take() {
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
    return std::move(*value);
  }
};

template <>
struct AsyncPromise<void> : AsyncPromiseBase {
  Async<void> get_return_object() noexcept;
  void return_void() const noexcept {}
  void take() {
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
  }
};

}  // namespace detail

/// What a function that may wait returns: a coroutine that starts when it is awaited and runs in the awaiting task.
/// The object owns the coroutine's frame. A function that cannot wait returns plainly, so that whoever reads a
/// signature knows whether control can be given up there.
template <class T = void>
class [[nodiscard]] Async {
 public:
  using promise_type = detail::AsyncPromise<T>;

  Async(Async&& other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
  Async& operator=(Async&& other) noexcept {
    std::swap(frame_, other.frame_);
    return *this;
  }
  ~Async() {
    if (frame_) frame_.destroy();
  }

  bool await_ready() const noexcept { return false; }
  std::coroutine_handle<> await_suspend(std::coroutine_handle<> caller) noexcept {
    frame_.promise().continuation = caller;
    return frame_;
  }
  T await_resume() { return frame_.promise().take(); }

 private:
  friend promise_type;
  explicit Async(std::coroutine_handle<promise_type> frame) noexcept : frame_(frame) {}

  std::coroutine_handle<promise_type> frame_;
};

namespace detail {

template <class T>
Async<T> AsyncPromise<T>::get_return_object() noexcept {
  return Async<T>(std::coroutine_handle<AsyncPromise<T>>::from_promise(*this));
}

inline Async<void> AsyncPromise<void>::get_return_object() noexcept {
  return Async<void>(std::coroutine_handle<AsyncPromise<void>>::from_promise(*this));
}

}  // namespace detail

}  // namespace weir
