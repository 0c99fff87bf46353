#include "backend/platform/signals.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "backend/platform/asio_wait.h"
#include "backend/platform/loop.h"

namespace weir {

struct Signals::Set {
  boost::asio::signal_set signals{Loop::current().context()};
};

Signals::Signals(std::initializer_list<int> signals) : set_(std::make_unique<Set>()) {
  for (const int signal : signals) set_->signals.add(signal);
}

Signals::~Signals() = default;

Async<int> Signals::next() {
  const auto [error, signal] = co_await asio_wait<boost::system::error_code, int>(
      [this](auto handler) { set_->signals.async_wait(std::move(handler)); });
  co_return signal;
}

}  // namespace weir
