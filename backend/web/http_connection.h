#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "backend/platform/async.h"
#include "backend/platform/clock.h"
#include "backend/platform/task.h"
#include "backend/web/http_limits.h"
#include "backend/web/request.h"
#include "backend/web/response.h"

namespace weir {

/// Answers a request; it must not fail. The request outlives the call.
using HttpHandler = std::function<Async<Response>(const Request&)>;

/// One client's connection: its requests are read, answered one after the other, and then the next. Shared by the
/// server and the connection's task.
class HttpConnection {
 public:
  HttpConnection(boost::asio::ip::tcp::socket socket, HttpHandler handler, const HttpLimits& limits);

  /// The body of the connection's task.
  static Async<> serve(std::shared_ptr<HttpConnection> self);
  /// Ends the task soon, in whatever it is.
  void abort();
  /// Ends the task after the answer that it is working on; at once when there is none.
  void finish();
  /// Whether the client has taken longer than it may.
  bool late() const { return deadline_ && now() > *deadline_; }

  Task task;

 private:
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;
  enum class Arrival { complete, broken, closed };

  Async<> serve_requests();
  Async<Arrival> read_request(Parser& parser);
  Async<Arrival> read_body(Parser& parser);
  Async<bool> answer(const Parser& parser);
  Async<> refuse(int status, std::string message);
  Async<bool> send(Response response, std::string_view method, bool keep_alive);
  Async<bool> send_file(FilePart file);
  Async<bool> write(std::string bytes);
  Async<> linger();
  Arrival judge(const boost::system::error_code& error);
  std::string remote_address() const;
  std::string local_authority() const;

  boost::asio::ip::tcp::socket socket_;
  boost::beast::flat_buffer buffer_;
  HttpHandler handler_;
  HttpLimits limits_;
  std::optional<TimePoint> deadline_;
  boost::system::error_code read_error_;
  bool busy_ = false;
  bool finishing_ = false;
};

}  // namespace weir
