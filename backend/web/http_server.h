#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "backend/platform/async.h"
#include "backend/platform/task.h"
#include "backend/web/http_service.h"

namespace weir {

/// Accepts connections on the current loop. Each is served by a task of its own; `stop` ends them all.
class HttpServer {
 public:
  /// The handler must not fail and outlives the server.
  explicit HttpServer(HttpHandler handler, HttpLimits limits = {}, std::set<std::string> trusted_proxies = {});
  ~HttpServer();

  /// Answers by TLS with these PEM files, which are read again when they change; to be called before `listen`. Plain
  /// HTTP for a host that `knows_host` accepts is redirected there. Throws `ValueError`.
  void use_tls(const std::string& certificate, const std::string& key, std::function<bool(const Request&)> knows_host);
  /// Binds the port, 0 for a free one; connections queue from now on. Throws `std::system_error`.
  void listen(const std::string& address, int port);
  /// The bound port.
  int port() const;
  /// Starts to accept.
  void start();
  /// Closes the port, gives answers in progress `grace` to end, and waits until every task has ended.
  Async<> stop(std::chrono::milliseconds grace);

  HttpFigures figures() const;

 private:
  struct State;

  static Async<> accept(std::shared_ptr<State> state);
  static Async<> end_dead_connections(std::shared_ptr<State> state);

  std::shared_ptr<State> state_;  ///< shared with the two tasks
  Task acceptor_;
  Task sweeper_;
};

}  // namespace weir
