#include "backend/web/http_connection.h"

#include <unistd.h>

#include <boost/asio/write.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>

#include "backend/base/log.h"
#include "backend/platform/asio_wait.h"
#include "backend/platform/failure.h"
#include "backend/web/response_head.h"

namespace weir {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds longest_linger{2};
constexpr int most_lingering_reads = 256;
constexpr std::size_t most_joined_bytes = 16 * 1024;

int refusal_status(const error_code& error) {
  if (error == http::error::body_limit) return 413;
  if (error == http::error::header_limit) return 431;
  return 400;
}

std::string header(const http::request<http::string_body>& message, http::field field) {
  return std::string(message[field]);
}

}  // namespace

HttpConnection::HttpConnection(asio::ip::tcp::socket socket, HttpHandler handler, const HttpLimits& limits)
    : socket_(std::move(socket)), handler_(std::move(handler)), limits_(limits) {
  error_code ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
}

Async<> HttpConnection::serve(std::shared_ptr<HttpConnection> self) {
  try {
    co_await self->serve_requests();
  } catch (const std::exception&) {
    log(LogLevel::error, "Web", format_traceback(std::current_exception()));
  }
  self->deadline_.reset();
  error_code ignored;
  self->socket_.close(ignored);
}

void HttpConnection::abort() {
  task.kill();
  // A kill that falls between two reads of one operation stops only what comes after the next one.
  error_code ignored;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
}

void HttpConnection::finish() {
  finishing_ = true;
  if (!busy_) abort();
}

Async<> HttpConnection::serve_requests() {
  for (;;) {
    Parser parser;
    const Arrival arrival = co_await read_request(parser);
    if (arrival == Arrival::closed) co_return;
    if (arrival == Arrival::broken) {
      const std::string message = read_error_.message();
      co_await refuse(refusal_status(read_error_), message);
      co_return;
    }
    const bool goes_on = co_await answer(parser);
    if (!goes_on) co_return;
  }
}

Async<HttpConnection::Arrival> HttpConnection::read_request(Parser& parser) {
  parser.header_limit(static_cast<std::uint32_t>(limits_.header_bytes));
  parser.body_limit(limits_.body_bytes);
  if (buffer_.size() == 0) {
    // The time for a request starts with its first byte.
    deadline_ = now() + limits_.idle;
    const auto [waited] = co_await asio_wait<error_code>(
        [this](auto handler) { socket_.async_wait(asio::ip::tcp::socket::wait_read, std::move(handler)); });
    if (waited) co_return judge(waited);
  }
  deadline_ = now() + limits_.read;
  const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
      [&](auto handler) { http::async_read_header(socket_, buffer_, parser, std::move(handler)); });
  if (error) co_return judge(error);
  const Arrival arrival = co_await read_body(parser);
  co_return arrival;
}

Async<HttpConnection::Arrival> HttpConnection::read_body(Parser& parser) {
  if (parser.is_done()) co_return Arrival::complete;
  if (parser.get()[http::field::expect] == "100-continue") {
    const bool asked = co_await write("HTTP/1.1 100 Continue\r\n\r\n");
    if (!asked) co_return Arrival::closed;
  }
  deadline_ = now() + limits_.read;
  const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
      [&](auto handler) { http::async_read(socket_, buffer_, parser, std::move(handler)); });
  co_return error ? judge(error) : Arrival::complete;
}

HttpConnection::Arrival HttpConnection::judge(const error_code& error) {
  read_error_ = error;
  const bool is_fault_of_request = error.category() == http::make_error_code(http::error::bad_target).category() &&
                                   error != http::error::end_of_stream && error != http::error::partial_message;
  return is_fault_of_request ? Arrival::broken : Arrival::closed;
}

Async<bool> HttpConnection::answer(const Parser& parser) {
  const auto& message = parser.get();
  auto target = parse_target(message.target());
  if (!target) {
    co_await refuse(400, "Invalid address");
    co_return false;
  }
  Request request{.method = std::string(message.method_string()),
                  .target = std::move(*target),
                  .host = header(message, http::field::host),
                  .origin = header(message, http::field::origin),
                  .range = header(message, http::field::range),
                  .body = message.body(),
                  .client_address = remote_address()};
  if (request.host.empty()) request.host = local_authority();
  deadline_.reset();
  busy_ = true;
  Response response = co_await handler_(request);
  // HTTP/1.0 clients are few and would have to be told that the connection stays.
  const bool keep_alive = message.keep_alive() && message.version() == 11 && !finishing_;
  const bool sent = co_await send(std::move(response), request.method, keep_alive);
  busy_ = false;
  co_return sent&& keep_alive && !finishing_;
}

// The rest of what the client sends is not read as a request any more.
Async<> HttpConnection::refuse(int status, std::string message) {
  const bool sent = co_await send(error_response(status, message), "GET", false);
  if (sent) co_await linger();
}

Async<bool> HttpConnection::send(Response response, std::string_view method, bool keep_alive) {
  std::string bytes = response_head(response, keep_alive);
  if (method == "HEAD") {
    response.file.reset();
    response.body.clear();
  }
  // One packet for most answers; a large body is not copied.
  if (response.body.size() <= most_joined_bytes) bytes += std::exchange(response.body, {});
  const bool begun = co_await write(std::move(bytes));
  if (!begun) co_return false;
  if (response.file) co_return co_await send_file(std::move(*response.file));
  co_return co_await write(std::move(response.body));
}

Async<bool> HttpConnection::send_file(FilePart file) {
  while (file.size > 0) {
    std::string chunk(std::min<std::uint64_t>(file.size, limits_.chunk_bytes), '\0');
    const ssize_t size = ::pread(file.file.get(), chunk.data(), chunk.size(), static_cast<off_t>(file.offset));
    // A file that became shorter: only the end of the connection can tell the client now.
    if (size <= 0) co_return false;
    chunk.resize(static_cast<std::size_t>(size));
    file.offset += chunk.size();
    file.size -= chunk.size();
    const bool sent = co_await write(std::move(chunk));
    if (!sent) co_return false;
  }
  co_return true;
}

Async<bool> HttpConnection::write(std::string bytes) {
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const std::string_view chunk = rest.substr(0, limits_.chunk_bytes);
    deadline_ = now() + limits_.write;
    const auto [error, size] = co_await asio_wait<error_code, std::size_t>([&](auto handler) {
      asio::async_write(socket_, asio::buffer(chunk.data(), chunk.size()), std::move(handler));
    });
    if (error) co_return false;
    rest.remove_prefix(chunk.size());
  }
  co_return true;
}

// Closing with unread bytes would reset the connection, and the client could lose the answer. Read until it has gone.
Async<> HttpConnection::linger() {
  error_code ignored;
  socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
  deadline_ = now() + longest_linger;
  std::string sink(64 * 1024, '\0');
  for (int i = 0; i < most_lingering_reads; ++i) {
    const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
        [&](auto handler) { socket_.async_read_some(asio::buffer(sink), std::move(handler)); });
    if (error) co_return;
  }
}

std::string HttpConnection::remote_address() const {
  error_code error;
  const auto endpoint = socket_.remote_endpoint(error);
  return error ? std::string() : endpoint.address().to_string();
}

std::string HttpConnection::local_authority() const {
  error_code error;
  const auto endpoint = socket_.local_endpoint(error);
  if (error) return {};
  const std::string address = endpoint.address().to_string();
  return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port());
}

}  // namespace weir
