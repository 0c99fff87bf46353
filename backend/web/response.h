#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"
#include "backend/platform/descriptor.h"
#include "backend/platform/failure.h"
#include "backend/web/live_body.h"

namespace weir {

/// A part of an open file.
struct FilePart {
  Descriptor file;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// A response; its body is `body`, or the part of a file, or goes on until it ends.
struct Response {
  int status = 200;
  std::string content_type;
  std::string body;
  std::optional<FilePart> file;
  bool is_live = false;            ///< the end of the connection ends the body
  std::unique_ptr<LiveBody> live;  ///< of a live response, except to HEAD
  std::vector<std::pair<std::string, std::string>> headers;
};

/// The status line and the headers, up to and with the empty line.
std::string format_head(const Response& response, bool keep_alive);

/// Refuses a request; the router turns it into an error response.
class HttpError : public std::runtime_error {
 public:
  HttpError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const noexcept { return status_; }
  /// What is answered: by default the message alone.
  virtual Response response() const;

 private:
  int status_;
};

/// Runs an operation on the values of a form: a `Failure` is their fault, and becomes an `HttpError` with 400.
template <class Operation>
auto as_bad_request(const Operation& operation) {
  try {
    return operation();
  } catch (const Failure& failure) {
    throw HttpError(400, failure.what());
  }
}

Response json_response(const Value& value, int status = 200);
/// The same for JSON text.
Response json_text_response(std::string text, int status = 200);
Response text_response(std::string text, int status = 200);
Response empty_response(int status = 204);
/// {"error": "…"}
Response error_response(int status, std::string_view message);
/// {"ok": true}
Response ok_response();

/// A response that needs no wait, as a handler returns it.
Async<Response> immediate(Response response);

}  // namespace weir
