#include "backend/web/http_connection.h"

#include <fmt/core.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/write.hpp>
#include <boost/beast/core/read_size.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>

#include "backend/base/log.h"
#include "backend/platform/asio_wait.h"
#include "backend/platform/failure.h"
#include "backend/web/request_source.h"

namespace weir {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds max_drain_time{2};
constexpr int max_drain_reads = 256;
constexpr std::size_t max_joined_bytes = 16 * 1024;
// A fraction of a millisecond of copying.
constexpr std::size_t max_sendfile_bytes = 512 * 1024;
constexpr std::size_t tls_file_bytes = 64 * 1024;
constexpr std::size_t max_read_bytes = 64 * 1024;

/// A request's part of the memory for bodies; given back at its end. Throws `HttpError` with 503 when too little is
/// left.
class BodyReservation {
 public:
  BodyReservation(std::shared_ptr<HttpService> service, std::size_t bytes)
      : service_(std::move(service)), bytes_(bytes) {
    if (bytes > service_->limits.total_body_bytes - service_->reserved_body_bytes)
      throw HttpError(503, "Too many request bodies at once");
    service_->reserved_body_bytes += bytes;
    service_->peak_body_bytes = std::max(service_->peak_body_bytes, service_->reserved_body_bytes);
  }
  ~BodyReservation() { service_->reserved_body_bytes -= bytes_; }
  BodyReservation(const BodyReservation&) = delete;
  BodyReservation& operator=(const BodyReservation&) = delete;

 private:
  std::shared_ptr<HttpService> service_;
  std::size_t bytes_;
};

/// Sends plain HTTP on the port of TLS to the same address over TLS.
class Redirection : public HttpError {
 public:
  explicit Redirection(std::string location)
      : HttpError(308, "The server answers over HTTPS"), location_(std::move(location)) {}
  Response response() const override {
    Response response = HttpError::response();
    response.headers.emplace_back("Location", location_);
    // Players on pages of other sites follow it, too.
    response.headers.emplace_back("Access-Control-Allow-Origin", "*");
    return response;
  }

 private:
  std::string location_;
};

// "/path?query" of "http://host/path?query".
std::string_view without_authority(std::string_view target) {
  const std::size_t scheme = target.starts_with('/') ? std::string_view::npos : target.find("://");
  if (scheme == std::string_view::npos) return target;
  return target.substr(std::min(target.find_first_of("/?", scheme + 3), target.size()));
}

// False when the client has gone. Throws `HttpError` for a request that can't be read.
bool succeeded(const error_code& error) {
  if (!error) return true;
  if (error == http::error::body_limit) throw HttpError(413, error.message());
  if (error == http::error::header_limit) throw HttpError(431, error.message());
  const bool is_http_error = error.category() == http::make_error_code(http::error::bad_target).category();
  if (is_http_error && error != http::error::end_of_stream && error != http::error::partial_message)
    throw HttpError(400, error.message());
  return false;
}

// A client of IPv4 on a socket that takes both families looks like "::ffff:192.0.2.7".
std::string to_text(const asio::ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped())
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
  return address.to_string();
}

// A header that is a list may be sent in several lines.
std::string join_fields(const http::request<http::string_body>& message, http::field name,
                        const char* separator = ", ") {
  std::string joined;
  for (auto [field, end] = message.equal_range(name); field != end; ++field) {
    if (!joined.empty()) joined += separator;
    joined += std::string_view(field->value());
  }
  return joined;
}

// HTTP/1.0 has no interim answers.
bool expects_continue(const http::request<http::string_body>& message) {
  return message.version() >= 11 && beast::iequals(message[http::field::expect], "100-continue");
}

}  // namespace

HttpConnection::HttpConnection(asio::ip::tcp::socket socket, std::shared_ptr<HttpService> service)
    : socket_(std::move(socket)), service_(std::move(service)) {
  error_code ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
}

Async<> HttpConnection::serve(std::shared_ptr<HttpConnection> self) {
  try {
    const bool opened = co_await self->open();
    if (opened) co_await self->serve_requests();
  } catch (const std::exception&) {
    log(LogLevel::error, "Web", format_traceback(std::current_exception()));
  }
  self->deadline_.reset();
  if (self->tls_) self->tls_->close();
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
  if (!busy_ || live_) abort();
}

// False when the client has gone, or speaks no TLS that the server does. Plain HTTP on the port of TLS is read, too: it
// is told where to go.
Async<bool> HttpConnection::open() {
  if (!service_->tls) co_return true;
  deadline_ = now() + service_->limits.idle;
  const bool readable = co_await wait_readable();
  char first = 0;
  if (!readable || ::recv(socket_.native_handle(), &first, 1, MSG_PEEK | MSG_DONTWAIT) != 1) co_return false;
  if (!begins_tls(first)) co_return true;
  deadline_ = now() + service_->limits.handshake;
  tls_.emplace(socket_, service_->tls->handle());
  co_return co_await tls_->accept();
}

Async<> HttpConnection::serve_requests() {
  std::optional<Response> refusal;
  try {
    bool goes_on = true;
    while (goes_on) goes_on = co_await serve_request();
  } catch (const HttpError& error) {
    refusal = error.response();
  }
  if (refusal) co_await refuse(std::move(*refusal));
}

// False when the connection ends with this request.
Async<bool> HttpConnection::serve_request() {
  Parser parser;
  const bool has_head = co_await read_head(parser);
  if (!has_head) co_return false;
  Request request = make_request(parser.get());
  if (service_->tls && !tls_) redirect(request, without_authority(parser.get().target()));
  const std::uint64_t announced = parser.content_length().value_or(0);
  const std::size_t limit = max_body_bytes(request);
  parser.body_limit(limit);
  if (announced > limit) throw HttpError(413, make_error_code(http::error::body_limit).message());
  const BodyReservation reservation(service_, parser.chunked() ? limit : announced);
  const bool has_body = co_await read_body(parser);
  if (!has_body) co_return false;
  request.body = std::move(parser.get().body());
  deadline_.reset();
  busy_ = true;
  const bool with_body = request.method != "HEAD";
  const TimePoint begin = now();
  Response response = co_await service_->handler(std::move(request));
  service_->figures.count(response.status, now() - begin);
  // HTTP/1.0 clients need a header for it that is not sent.
  const bool keep_alive = parser.keep_alive() && parser.get().version() == 11 && !finishing_ && !response.is_live;
  const bool sent = co_await send(std::move(response), with_body, keep_alive);
  busy_ = false;
  co_return !finishing_ && keep_alive && sent;
}

std::size_t HttpConnection::max_body_bytes(const Request& request) const {
  const HttpLimits& limits = service_->limits;
  const bool may_be_large = !limits.large_path.empty() && request.target.path == limits.large_path;
  return may_be_large ? limits.large_body_bytes : limits.body_bytes;
}

Async<bool> HttpConnection::read_head(Parser& parser) {
  parser.header_limit(static_cast<std::uint32_t>(service_->limits.header_bytes));
  // Which path is asked for, and so how large the body may be, is known later.
  parser.body_limit(std::max(service_->limits.body_bytes, service_->limits.large_body_bytes));
  if (buffer_.size() == 0 && !(tls_ && tls_->has_pending())) {
    // The time for a request starts with its first byte.
    deadline_ = now() + service_->limits.idle;
    const bool readable = co_await wait_readable();
    if (!readable) co_return false;
  } else if (tls_) {
    // Nothing else lets others have their turn where a client sends on and on, and takes its short answers.
    co_await yield_to_others();
  }
  deadline_ = now() + service_->limits.read;
  parser.eager(false);
  const error_code error = co_await read_until(parser, &Parser::is_header_done);
  co_return succeeded(error);
}

Async<bool> HttpConnection::read_body(Parser& parser) {
  if (parser.is_done()) co_return true;
  if (expects_continue(parser.get())) {
    const bool asked = co_await write("HTTP/1.1 100 Continue\r\n\r\n");
    if (!asked) co_return false;
  }
  deadline_ = now() + service_->limits.read;
  parser.eager(true);
  const error_code error = co_await read_until(parser, &Parser::is_done);
  co_return succeeded(error);
}

// As Beast reads from a socket of its own.
Async<error_code> HttpConnection::read_until(Parser& parser, bool (Parser::*is_done)() const) {
  for (;;) {
    error_code error = http::error::need_more;
    if (buffer_.size() > 0) {
      error = {};
      buffer_.consume(parser.put(buffer_.data(), error));
    }
    if (error && error != http::error::need_more) co_return error;
    if ((parser.*is_done)()) co_return error_code();
    if (!error && buffer_.size() > 0) continue;
    const std::size_t size = co_await read_some(buffer_.prepare(beast::read_size(buffer_, max_read_bytes)));
    if (size == 0) co_return http::error::end_of_stream;
    buffer_.commit(size);
  }
}

// 0 at the end.
Async<std::size_t> HttpConnection::read_some(asio::mutable_buffer room) {
  if (tls_) co_return co_await tls_->read_some(room);
  const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
      [&](auto handler) { socket_.async_read_some(room, std::move(handler)); });
  co_return error ? 0 : size;
}

Async<bool> HttpConnection::wait_readable() {
  const auto [error] = co_await asio_wait<error_code>(
      [this](auto handler) { socket_.async_wait(asio::ip::tcp::socket::wait_read, std::move(handler)); });
  co_return !error;
}

// Throws `HttpError`. Where a foreign name was made to point here, nobody is sent to it.
void HttpConnection::redirect(const Request& request, std::string_view target) const {
  if (!service_->knows_host(request))
    throw HttpError(421, "The server answers over HTTPS, and is not known under this host name");
  throw Redirection(fmt::format("https://{}{}", request.host, target));
}

// The request without its body. Throws `HttpError` with 400 for one that HTTP does not allow.
Request HttpConnection::make_request(const Parser::value_type& message) const {
  auto target = parse_target(message.target());
  if (!target) throw HttpError(400, "Invalid request target");
  const std::size_t hosts = message.count(http::field::host);
  if (hosts > 1 || (hosts == 0 && message.version() >= 11)) throw HttpError(400, "Exactly one Host header is required");
  std::string host(message[http::field::host]);
  if (!host.empty() && !is_authority(host)) throw HttpError(400, "Invalid Host header");
  // The host of a target in absolute form counts, whatever the header says.
  if (!target->host.empty()) host = target->host;
  Request request{.method = std::string(message.method_string()),
                  .target = std::move(*target),
                  .host = host.empty() ? local_authority() : std::move(host),
                  .origin = std::string(message[http::field::origin]),
                  .range = std::string(message[http::field::range]),
                  .last_event_id = std::string(message["Last-Event-ID"]),
                  .if_match = join_fields(message, http::field::if_match),
                  .if_none_match = join_fields(message, http::field::if_none_match),
                  .accept_encoding = join_fields(message, http::field::accept_encoding),
                  .idempotency_key = std::string(message["Idempotency-Key"]),
                  .authorization = std::string(message[http::field::authorization]),
                  .cookie = join_fields(message, http::field::cookie, "; "),
                  .fetch_site = std::string(message["Sec-Fetch-Site"]),
                  .body = {},
                  .client_address = {},
                  .client_port = {}};
  request.forwarded = message.count("X-Forwarded-For") > 0 || message.count(http::field::forwarded) > 0 ||
                      message.count(http::field::via) > 0;
  set_client(request, message);
  return request;
}

// What follows on the connection is not read as a request.
Async<> HttpConnection::refuse(Response response) {
  if (response.status == 503) response.headers.emplace_back("Retry-After", "5");
  service_->figures.count(response.status);
  const bool sent = co_await send(std::move(response), true, false);
  if (sent) co_await drain();
}

Async<bool> HttpConnection::send(Response response, bool with_body, bool keep_alive) {
  std::string bytes = format_head(response, keep_alive);
  if (!with_body) {
    response.file.reset();
    response.live.reset();
    response.body.clear();
  }
  // One packet for most answers; a large body is not copied.
  if (response.body.size() <= max_joined_bytes) bytes += std::exchange(response.body, {});
  const bool begun = co_await write(std::move(bytes));
  if (!begun) co_return false;
  if (response.live) {
    co_await send_live(std::move(response.live));
    co_return false;
  }
  if (response.file && response.file->size == 0) co_return true;
  if (response.file && tls_) co_return co_await send_file_over_tls(std::move(*response.file));
  if (response.file) co_return co_await send_file(std::move(*response.file));
  co_return co_await write(std::move(response.body));
}

// The kernel copies from its cache to the socket. Others have their turn after each chunk.
Async<bool> HttpConnection::send_file(FilePart file) {
  auto offset = static_cast<off_t>(file.offset);
  socket_.native_non_blocking(true);
  for (;;) {
    const std::size_t chunk = std::min<std::uint64_t>(file.size, max_sendfile_bytes);
    const ssize_t size = ::sendfile(socket_.native_handle(), file.file.get(), &offset, chunk);
    // The client has gone, or the file became shorter: closing the connection is the only way to tell.
    if (size == 0 || (size < 0 && errno != EAGAIN)) co_return false;
    if (size > 0) file.size -= static_cast<std::uint64_t>(size);
    if (file.size == 0) co_return true;
    deadline_ = now() + service_->limits.write;
    const auto [error] = co_await asio_wait<error_code>(
        [this](auto handler) { socket_.async_wait(asio::ip::tcp::socket::wait_write, std::move(handler)); });
    if (error) co_return false;
  }
}

Async<bool> HttpConnection::send_file_over_tls(FilePart file) {
  std::string chunk(std::min<std::uint64_t>(file.size, tls_file_bytes), '\0');
  while (file.size > 0) {
    const std::size_t wanted = std::min<std::uint64_t>(file.size, chunk.size());
    const ssize_t size = ::pread(file.file.get(), chunk.data(), wanted, static_cast<off_t>(file.offset));
    if (size <= 0) co_return false;
    file.offset += static_cast<std::uint64_t>(size);
    file.size -= static_cast<std::uint64_t>(size);
    deadline_ = now() + service_->limits.write;
    const bool sent = co_await tls_->write({chunk.data(), static_cast<std::size_t>(size)});
    if (!sent) co_return false;
  }
  co_return true;
}

Async<> HttpConnection::send_live(std::unique_ptr<LiveBody> body) {
  live_ = true;
  if (const int bytes = body->send_buffer_bytes()) {
    error_code ignored;
    socket_.set_option(asio::socket_base::send_buffer_size(bytes), ignored);
  }
  for (;;) {
    deadline_.reset();
    std::vector<LiveSlice> slices = co_await body->next();
    if (slices.empty()) co_return;
    deadline_ = now() + service_->limits.live_write;
    const bool written = co_await write_slices(std::move(slices));
    if (!written) co_return;
  }
}

Async<bool> HttpConnection::write_slices(std::vector<LiveSlice> slices) {
  if (tls_) {
    for (const LiveSlice& slice : slices) {
      const bool written = co_await tls_->write(slice.bytes);
      if (!written) co_return false;
    }
    co_return true;
  }
  std::vector<asio::const_buffer> buffers;
  for (const LiveSlice& slice : slices) buffers.emplace_back(slice.bytes.data(), slice.bytes.size());
  const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
      [&](auto handler) { asio::async_write(socket_, buffers, std::move(handler)); });
  co_return !error;
}

Async<bool> HttpConnection::write(std::string bytes) {
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const std::string_view chunk = rest.substr(0, service_->limits.chunk_bytes);
    deadline_ = now() + service_->limits.write;
    const bool written = co_await write_slices({LiveSlice{nullptr, chunk}});
    if (!written) co_return false;
    rest.remove_prefix(chunk.size());
  }
  co_return true;
}

// Closing with unread bytes would reset the connection, and the client could lose the answer. What comes is dropped.
Async<> HttpConnection::drain() {
  static std::array<char, 64 * 1024> dropped;
  error_code ignored;
  if (tls_) tls_->close();
  socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
  deadline_ = now() + max_drain_time;
  for (int i = 0; i < max_drain_reads; ++i) {
    const auto [error, size] = co_await asio_wait<error_code, std::size_t>(
        [&](auto handler) { socket_.async_read_some(asio::buffer(dropped), std::move(handler)); });
    if (error) co_return;
  }
}

// A live response notices by its writes, but for the time in which there is nothing to write.
bool HttpConnection::has_left() {
  if (tls_) return tls_->has_left();
  char byte;
  const ssize_t size = ::recv(socket_.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
}

void HttpConnection::set_client(Request& request, const Parser::value_type& message) const {
  error_code error;
  const auto endpoint = socket_.remote_endpoint(error);
  if (error) return;
  const std::string sender = to_text(endpoint.address());
  request.client_address = find_client_address(sender, message["X-Forwarded-For"], service_->trusted_proxies);
  const bool proxy_tells = service_->trusted_proxies.contains(sender) && message.count("X-Forwarded-Proto") > 0;
  request.secure = proxy_tells ? beast::iequals(message["X-Forwarded-Proto"], "https") : tls_.has_value();
  request.client_port = std::to_string(endpoint.port());
  const auto local = socket_.local_endpoint(error);
  if (!error) request.local_address = to_text(local.address());
}

std::string HttpConnection::local_authority() const {
  error_code error;
  const auto endpoint = socket_.local_endpoint(error);
  if (error) return {};
  const std::string address = endpoint.address().to_string();
  return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port());
}

}  // namespace weir
