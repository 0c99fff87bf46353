#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/task.h"
#include "backend/web/http_service.h"
#include "backend/web/tls_stream.h"

namespace weir {

/// One client's connection: reads a request, answers it, then reads the next. Shared by the server and the
/// connection's task.
class HttpConnection {
 public:
  HttpConnection(boost::asio::ip::tcp::socket socket, std::shared_ptr<HttpService> service);

  /// The body of the connection's task.
  static Async<> serve(std::shared_ptr<HttpConnection> self);
  /// Cancels the task wherever it waits.
  void abort();
  /// Ends the task after the answer that it is working on; at once when there is none.
  void finish();
  /// Whether the client has exceeded a time limit, or has left a live response.
  bool is_over() { return deadline_ ? now() > *deadline_ : live_ && has_left(); }

  Task task;

 private:
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  Async<bool> open();
  Async<> serve_requests();
  Async<bool> serve_request();
  std::size_t max_body_bytes(const Request& request) const;
  Async<bool> read_head(Parser& parser);
  Async<bool> read_body(Parser& parser);
  Async<boost::system::error_code> read_until(Parser& parser, bool (Parser::*is_done)() const);
  Async<std::size_t> read_some(boost::asio::mutable_buffer room);
  Async<bool> wait_readable();
  [[noreturn]] void redirect(const Request& request, std::string_view target) const;
  Request make_request(const Parser::value_type& message) const;
  Async<> refuse(Response response);
  Async<bool> send(Response response, bool with_body, bool keep_alive);
  Async<bool> send_file(FilePart file);
  Async<bool> send_file_over_tls(FilePart file);
  Async<> send_live(std::unique_ptr<LiveBody> body);
  Async<bool> write(std::string bytes);
  Async<bool> write_slices(std::vector<LiveSlice> slices);
  Async<> drain();
  bool has_left();
  void set_client(Request& request, const Parser::value_type& message) const;
  std::string local_authority() const;

  boost::asio::ip::tcp::socket socket_;
  std::optional<TlsStream> tls_;
  boost::beast::flat_buffer buffer_;
  std::shared_ptr<HttpService> service_;
  std::optional<TimePoint> deadline_;
  bool busy_ = false;
  bool live_ = false;
  bool finishing_ = false;
};

}  // namespace weir
