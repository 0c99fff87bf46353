#include "backend/web/response.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/text_form.h"
#include "backend/platform/clock.h"

namespace weir {

namespace {

// What the API says is true now and never later.
Response make(int status, std::string content_type, std::string body) {
  Response response;
  response.status = status;
  response.content_type = std::move(content_type);
  response.body = std::move(body);
  response.headers.emplace_back("Cache-Control", "no-store");
  return response;
}

std::string reason(int status) {
  return std::string(
      boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(static_cast<unsigned>(status))));
}

// Answers are data, never pages that could run scripts or stand in a frame; what is a page brings its own policy.
constexpr std::string_view content_policy = "Content-Security-Policy";
constexpr std::string_view security_headers =
    "X-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer\r\nX-Frame-Options: DENY\r\n";
constexpr std::string_view default_content_policy = "default-src 'none'; frame-ancestors 'none'";

bool has_content_policy(const Response& response) {
  return std::ranges::any_of(response.headers, [](const auto& header) { return header.first == content_policy; });
}

}  // namespace

Response HttpError::response() const { return error_response(status_, what()); }

std::string format_head(const Response& response, bool keep_alive) {
  std::string head = fmt::format("HTTP/1.1 {} {}\r\nDate: {:%a, %d %b %Y %H:%M:%S GMT}\r\n", response.status,
                                 reason(response.status), fmt::gmtime(static_cast<std::time_t>(wall_seconds())));
  if (response.status != 204 && response.status != 304 && !response.is_live)
    head += fmt::format("Content-Length: {}\r\n", response.file ? response.file->size : response.body.size());
  if (!response.content_type.empty()) head += fmt::format("Content-Type: {}\r\n", response.content_type);
  head += security_headers;
  if (!has_content_policy(response)) head += fmt::format("{}: {}\r\n", content_policy, default_content_policy);
  for (const auto& [name, value] : response.headers) head += fmt::format("{}: {}\r\n", name, value);
  if (!keep_alive) head += "Connection: close\r\n";
  return head += "\r\n";
}

Response json_response(const Value& value, int status) { return json_text_response(to_json(value), status); }

Response json_text_response(std::string text, int status) {
  return make(status, "application/json", std::move(text) + "\n");
}

Response text_response(std::string text, int status) {
  return make(status, "text/plain; charset=utf-8", std::move(text));
}

Response empty_response(int status) { return make(status, {}, {}); }

Response error_response(int status, std::string_view message) {
  // A reason may name an input with its password.
  return json_response(Value{{"error", mask_passwords(message)}}, status);
}

Response ok_response() { return json_response(Value{{"ok", true}}); }

Async<Response> immediate(Response response) { co_return response; }

}  // namespace weir
