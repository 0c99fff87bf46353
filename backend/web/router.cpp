#include "backend/web/router.h"

#include <fmt/core.h>

#include <optional>
#include <set>

#include "backend/base/log.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

bool is_parameter(const std::string& segment) { return segment.starts_with('{'); }

std::optional<PathParameters> match(const std::vector<std::string>& pattern, const std::vector<std::string>& path) {
  if (pattern.size() != path.size()) return std::nullopt;
  PathParameters parameters;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (is_parameter(pattern[i]) && !path[i].empty())
      parameters.push_back(path[i]);
    else if (pattern[i] != path[i])
      return std::nullopt;
  }
  return parameters;
}

bool answers(const std::string& route_method, const std::string& method) {
  return route_method == method || (method == "HEAD" && route_method == "GET");
}

bool changes_something(const std::string& method) { return method != "GET" && method != "HEAD" && method != "OPTIONS"; }

// A page of another site must not work the server through its visitor's browser.
bool comes_from_another_site(const Request& request) {
  if (request.origin.empty() || !changes_something(request.method)) return false;
  const std::size_t scheme = request.origin.find("://");
  return scheme == std::string::npos || request.origin.substr(scheme + 3) != request.host;
}

std::string join(const std::set<std::string>& methods) {
  std::string text;
  for (const std::string& method : methods) text += (text.empty() ? "" : ", ") + method;
  return text;
}

Response refuse_method(const std::string& method, const std::set<std::string>& allowed) {
  Response response =
      method == "OPTIONS" ? empty_response() : error_response(405, fmt::format("{} is not possible here", method));
  response.headers.emplace_back("Allow", join(allowed));
  return response;
}

}  // namespace

void Router::add(std::string_view method, std::string_view pattern, RouteHandler handler) {
  std::vector<std::string> segments;
  for (pattern.remove_prefix(1);;) {
    const std::size_t end = std::min(pattern.find('/'), pattern.size());
    segments.emplace_back(pattern.substr(0, end));
    if (end == pattern.size()) break;
    pattern.remove_prefix(end + 1);
  }
  routes_.push_back({std::string(method), std::move(segments), std::move(handler)});
}

Async<Response> Router::route(const Request& request) const {
  try {
    co_return co_await dispatch(request);
  } catch (const HttpError& error) {
    co_return error_response(error.status(), error.what());
  } catch (const std::exception& failure) {
    log(LogLevel::error, "Web", format_traceback(std::current_exception()));
    co_return error_response(500, failure.what());
  }
}

Async<Response> Router::dispatch(const Request& request) const {
  if (comes_from_another_site(request)) co_return error_response(403, "Requests of other sites' pages are refused");
  std::set<std::string> allowed;
  for (const Route& route : routes_) {
    const auto parameters = match(route.pattern, request.target.path);
    if (!parameters) continue;
    if (answers(route.method, request.method)) {
      Response response = co_await route.handler(request, *parameters);
      co_return response;
    }
    allowed.insert(route.method);
  }
  if (!allowed.empty()) co_return refuse_method(request.method, allowed);
  co_return error_response(404, "There is nothing at this address");
}

}  // namespace weir
