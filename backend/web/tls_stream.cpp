#include "backend/web/tls_stream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "backend/platform/asio_wait.h"
#include "backend/platform/failure.h"

namespace weir {

using boost::asio::ip::tcp;
using boost::system::error_code;

namespace {

/// A fraction of a millisecond of encryption; others have their turn after it.
constexpr std::size_t max_written_bytes = 64 * 1024;

int to_length(std::size_t size) {
  return static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max()));
}

}  // namespace

TlsStream::TlsStream(tcp::socket& socket, const TlsContext::Handle& context)
    : socket_(socket), ssl_(::SSL_new(context.get()), ::SSL_free) {
  error_code ignored;
  socket_.native_non_blocking(true, ignored);
  if (!ssl_ || ::SSL_set_fd(ssl_.get(), socket_.native_handle()) != 1) throw ValueError("TLS: out of memory");
  ::SSL_set_accept_state(ssl_.get());
}

// Repeats the operation whenever the socket is ready for it. Its result; 0 when it failed.
Async<int> TlsStream::run(std::function<int()> operation) {
  for (;;) {
    ::ERR_clear_error();
    const int result = operation();
    if (result > 0) co_return result;
    const int reason = ::SSL_get_error(ssl_.get(), result);
    const bool reads = reason == SSL_ERROR_WANT_READ;
    if (!reads && reason != SSL_ERROR_WANT_WRITE) {
      failed_ = reason != SSL_ERROR_ZERO_RETURN;
      co_return 0;
    }
    const auto kind = reads ? tcp::socket::wait_read : tcp::socket::wait_write;
    const auto [error] =
        co_await asio_wait<error_code>([&](auto handler) { socket_.async_wait(kind, std::move(handler)); });
    if (error) co_return 0;
  }
}

Async<bool> TlsStream::accept() {
  const int done = co_await run([this] { return ::SSL_do_handshake(ssl_.get()); });
  co_return done > 0;
}

Async<std::size_t> TlsStream::read_some(boost::asio::mutable_buffer buffer) {
  const int size = co_await run([&] { return ::SSL_read(ssl_.get(), buffer.data(), to_length(buffer.size())); });
  co_return static_cast<std::size_t>(size);
}

Async<bool> TlsStream::write(std::string_view bytes) {
  std::size_t in_turn = 0;
  while (!bytes.empty()) {
    const int size = co_await run([&] { return ::SSL_write(ssl_.get(), bytes.data(), to_length(bytes.size())); });
    if (size <= 0) co_return false;
    bytes.remove_prefix(static_cast<std::size_t>(size));
    in_turn += static_cast<std::size_t>(size);
    if (in_turn < max_written_bytes) continue;
    in_turn = 0;
    const auto [error] = co_await asio_wait<error_code>(
        [this](auto handler) { socket_.async_wait(tcp::socket::wait_write, std::move(handler)); });
    if (error) co_return false;
  }
  co_return true;
}

bool TlsStream::has_pending() const { return ::SSL_pending(ssl_.get()) > 0; }

bool TlsStream::has_left() {
  std::array<char, 256> dropped;
  ::ERR_clear_error();
  const int size = ::SSL_read(ssl_.get(), dropped.data(), to_length(dropped.size()));
  if (size > 0) return false;
  const int reason = ::SSL_get_error(ssl_.get(), size);
  return reason != SSL_ERROR_WANT_READ && reason != SSL_ERROR_WANT_WRITE;
}

void TlsStream::close() {
  if (failed_) return;
  ::ERR_clear_error();
  ::SSL_shutdown(ssl_.get());
}

}  // namespace weir
