#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "backend/platform/async.h"
#include "backend/platform/task.h"
#include "backend/web/http_limits.h"
#include "backend/web/request.h"
#include "backend/web/response.h"

#include <functional>

namespace weir {

/// Accepts connections on the current loop and has each answered by a task of its own, all of which end in `stop`.
class HttpServer {
 public:
  /// The handler must not fail and outlives the server.
  explicit HttpServer(std::function<Async<Response>(const Request&)> handler, HttpLimits limits = {});
  ~HttpServer();

  /// Takes the port, 0 for a free one; clients wait from now on. Throws `std::system_error`.
  void listen(const std::string& address, int port);
  /// The port that was taken.
  int port() const;
  /// Starts to accept.
  void start();
  /// Accepts no more, lets the answers that are under way end within `grace`, and waits until every task has ended.
  Async<> stop(std::chrono::milliseconds grace);

 private:
  struct State;

  static Async<> accept(State& state);
  static Async<> end_late_connections(State& state);

  std::unique_ptr<State> state_;
  Task acceptor_;
  Task sweeper_;
};

}  // namespace weir
