#include "backend/web/http_server.h"

#include <fmt/core.h>
#include <malloc.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "backend/base/log.h"
#include "backend/platform/asio_wait.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/web/http_connection.h"

namespace weir {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::string_view overload_answer =
    "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\nContent-Length: 0\r\n"
    "X-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer\r\nX-Frame-Options: DENY\r\n"
    "Content-Security-Policy: default-src 'none'; frame-ancestors 'none'\r\nConnection: close\r\n\r\n";

void check(const error_code& error, const std::string& what) {
  if (error) throw std::system_error(std::error_code(error), what);
}

// Freed bodies lie between other allocations: the allocator keeps them until it is told to trim.
void return_freed_memory(HttpService& service) {
  constexpr std::size_t max_kept = 8 << 20;
  if (service.peak_body_bytes - service.reserved_body_bytes <= max_kept) return;
  service.peak_body_bytes = service.reserved_body_bytes;
  ::malloc_trim(max_kept);
}

}  // namespace

struct HttpServer::State {
  std::shared_ptr<HttpService> service;
  tcp::acceptor acceptor{Loop::current().context()};
  std::vector<std::shared_ptr<HttpConnection>> connections;

  void forget_ended() {
    std::erase_if(connections, [](const auto& connection) { return connection->task.dead(); });
  }

  void add(tcp::socket socket) {
    if (connections.size() >= service->limits.connections) forget_ended();
    if (connections.size() >= service->limits.connections) {
      service->figures.count(503);
      if (!service->tls) refuse(socket);
      return;
    }
    const auto connection = std::make_shared<HttpConnection>(std::move(socket), service);
    connections.push_back(connection);
    connection->task = spawn("http connection", HttpConnection::serve(connection));
  }

  // A new socket's buffer takes this without waiting.
  static void refuse(tcp::socket& socket) {
    error_code ignored;
    socket.non_blocking(true, ignored);
    socket.send(asio::buffer(overload_answer.data(), overload_answer.size()), 0, ignored);
  }
};

HttpServer::HttpServer(HttpHandler handler, HttpLimits limits, std::set<std::string> trusted_proxies)
    : state_(std::make_shared<State>(
          std::make_shared<HttpService>(std::move(handler), std::move(limits), std::move(trusted_proxies)))) {}

HttpServer::~HttpServer() {
  acceptor_.kill();
  sweeper_.kill();
  for (const auto& connection : state_->connections) connection->abort();
}

void HttpServer::use_tls(const std::string& certificate, const std::string& key,
                         std::function<bool(const Request&)> knows_host) {
  state_->service->tls = std::make_unique<TlsContext>(certificate, key);
  state_->service->knows_host = std::move(knows_host);
}

void HttpServer::listen(const std::string& address, int port) {
  const std::string what = fmt::format("Cannot listen on {} port {}", address, port);
  error_code error;
  const tcp::endpoint endpoint(asio::ip::make_address(address, error), static_cast<std::uint16_t>(port));
  check(error, what);
  tcp::acceptor& acceptor = state_->acceptor;
  acceptor.open(endpoint.protocol(), error);
  check(error, what);
  acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  check(error, what);
  acceptor.bind(endpoint, error);
  check(error, what);
  acceptor.listen(tcp::acceptor::max_listen_connections, error);
  check(error, what);
}

HttpFigures HttpServer::figures() const {
  HttpFigures figures = state_->service->figures;
  figures.connections = static_cast<std::size_t>(
      std::ranges::count_if(state_->connections, [](const auto& connection) { return !connection->task.dead(); }));
  return figures;
}

int HttpServer::port() const { return state_->acceptor.local_endpoint().port(); }

void HttpServer::start() {
  acceptor_ = spawn("http acceptor", accept(state_));
  sweeper_ = spawn("http sweeper", end_dead_connections(state_));
}

Async<> HttpServer::accept(std::shared_ptr<State> state) {
  for (;;) {
    auto [error, socket] = co_await asio_wait<error_code, tcp::socket>(
        [&](auto handler) { state->acceptor.async_accept(std::move(handler)); });
    if (!error) {
      state->add(std::move(socket));
      continue;
    }
    // Usually no descriptor is left, which passes.
    log(LogLevel::warning, "Web", fmt::format("Cannot accept a connection: {}", error.message()));
    co_await sleep(std::chrono::seconds(1));
  }
}

// One look a second at all connections costs less than a timer for each of their waits.
Async<> HttpServer::end_dead_connections(std::shared_ptr<State> state) {
  for (;;) {
    co_await sleep_to_next(std::chrono::seconds(1));
    state->forget_ended();
    if (state->service->tls) state->service->tls->refresh();
    for (const auto& connection : state->connections)
      if (connection->is_over()) connection->abort();
    return_freed_memory(*state->service);
  }
}

Async<> HttpServer::stop(std::chrono::milliseconds grace) {
  co_await acceptor_.kill_and_wait();
  error_code ignored;
  state_->acceptor.close(ignored);
  for (const auto& connection : state_->connections) connection->finish();
  const TimePoint end = now() + grace;
  while (state_->forget_ended(), !state_->connections.empty() && now() < end)
    co_await sleep(std::chrono::milliseconds(20));
  // From here on nothing else changes the list.
  co_await sweeper_.kill_and_wait();
  for (const auto& connection : state_->connections) connection->abort();
  for (const auto& connection : state_->connections) co_await connection->task.wait();
  state_->connections.clear();
}

}  // namespace weir
