#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "backend/platform/async.h"
#include "backend/web/tls_context.h"

struct ssl_st;

namespace weir {

/// The server's end of TLS over a connected socket, which outlives it. One operation is under way at a time. A failure
/// is final: the connection is to be closed then.
class TlsStream {
 public:
  /// Throws `ValueError` when memory is short.
  TlsStream(boost::asio::ip::tcp::socket& socket, const TlsContext::Handle& context);

  /// False when the client speaks no TLS that the server does.
  Async<bool> accept();
  /// Waits for bytes; 0 at the end.
  Async<std::size_t> read_some(boost::asio::mutable_buffer buffer);
  /// False when the client has gone.
  Async<bool> write(std::string_view bytes);
  /// Whether bytes can be read without the socket.
  bool has_pending() const;
  /// Whether the client has ended its side. What it sent is dropped.
  bool has_left();
  /// Tells the client that nothing follows, if that is possible without waiting.
  void close();

 private:
  Async<int> run(std::function<int()> operation);

  boost::asio::ip::tcp::socket& socket_;
  std::unique_ptr<ssl_st, void (*)(ssl_st*)> ssl_;
  bool failed_ = false;
};

/// Whether the first byte that a client sends begins TLS.
inline bool begins_tls(char first) { return first == 0x16; }

}  // namespace weir
