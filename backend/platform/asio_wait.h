#pragma once

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "backend/platform/task.h"

namespace weir {

/// One Asio operation as a wait. A kill cancels the operation and is raised once Asio has let go of the buffers.
template <class Initiate, class... Results>
class AsioWait final : public Wait {
 public:
  explicit AsioWait(Initiate initiate) : initiate_(std::move(initiate)) {}
  ~AsioWait() {
    if (state_) state_->wait = nullptr;
  }

  std::tuple<Results...> await_resume() {
    finish();
    return std::move(*state_->results);
  }

 private:
  struct State {
    AsioWait* wait;
    boost::asio::cancellation_signal signal;
    std::optional<std::tuple<Results...>> results;
  };

  bool begin() override {
    state_ = std::make_shared<State>();
    state_->wait = this;
    initiate_(boost::asio::bind_cancellation_slot(state_->signal.slot(), [state = state_](Results... results) {
      if (!state->wait) return;
      state->results.emplace(std::move(results)...);
      state->wait->complete();
    }));
    return true;
  }

  bool cancel() noexcept override {
    state_->signal.emit(boost::asio::cancellation_type::terminal);
    return false;
  }

  Initiate initiate_;
  std::shared_ptr<State> state_;
};

/// Waits for an Asio operation: `initiate` starts it with the completion handler that it is given, whose arguments are
/// the result.
///
///     auto [error, size] = co_await asio_wait<error_code, std::size_t>([&](auto handler) {
///       socket.async_read_some(buffer, std::move(handler));
///     });
template <class... Results, class Initiate>
AsioWait<Initiate, Results...> asio_wait(Initiate initiate) {
  return AsioWait<Initiate, Results...>(std::move(initiate));
}

}  // namespace weir
