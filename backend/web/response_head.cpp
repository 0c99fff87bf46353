#include "backend/web/response_head.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <boost/beast/http/status.hpp>

#include "backend/platform/clock.h"

namespace weir {

namespace {

std::string reason(int status) {
  return std::string(
      boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(static_cast<unsigned>(status))));
}

}  // namespace

std::string response_head(const Response& response, bool keep_alive) {
  std::string head = fmt::format("HTTP/1.1 {} {}\r\nDate: {:%a, %d %b %Y %H:%M:%S GMT}\r\n", response.status,
                                 reason(response.status), fmt::gmtime(static_cast<std::time_t>(wall_seconds())));
  if (response.status != 204)
    head += fmt::format("Content-Length: {}\r\n", response.file ? response.file->size : response.body.size());
  if (!response.content_type.empty())
    head += fmt::format("Content-Type: {}\r\nX-Content-Type-Options: nosniff\r\n", response.content_type);
  for (const auto& [name, value] : response.headers) head += fmt::format("{}: {}\r\n", name, value);
  if (!keep_alive) head += "Connection: close\r\n";
  return head += "\r\n";
}

}  // namespace weir
