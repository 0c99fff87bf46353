#include "backend/web/router.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

#include "backend/base/log.h"
#include "backend/base/numbers.h"
#include "backend/platform/failure.h"
#include "backend/web/api/compression.h"
#include "backend/web/api/document_tag.h"

namespace weir {

namespace {

bool fits(const std::string& pattern, const std::string& segment) {
  if (!pattern.starts_with('{')) return pattern == segment;
  return pattern.ends_with(":number}") ? is_number(segment) : !segment.empty();
}

std::optional<PathParameters> match(const std::vector<std::string>& pattern, const std::vector<std::string>& path) {
  if (!std::ranges::equal(pattern, path, fits)) return std::nullopt;
  PathParameters parameters;
  for (std::size_t i = 0; i < pattern.size(); ++i)
    if (pattern[i].starts_with('{')) parameters.push_back(path[i]);
  return parameters;
}

bool answers(const std::string& route_method, const std::string& method) {
  return route_method == method || (method == "HEAD" && route_method == "GET");
}

bool changes_something(const std::string& method) { return method != "GET" && method != "HEAD" && method != "OPTIONS"; }

Response refuse_stranger(const Identity& identity) {
  Response response =
      error_response(401, identity.wrong_token ? "The token does not exist or has expired" : "Log in, or send a token");
  response.headers.emplace_back("WWW-Authenticate", identity.wrong_token
                                                        ? fmt::format("{}, error=\"invalid_token\"", bearer_challenge)
                                                        : std::string(bearer_challenge));
  return response;
}

// Nothing when the sender may.
std::optional<Response> find_refusal(const Request& request, Role needed, bool starts_something) {
  // Cross-site request forgery: a page of another site must not do anything through a browser.
  if (request.from_other_site && (starts_something || changes_something(request.method)))
    return error_response(403, "Cross-site request refused");
  if (request.identity.role >= needed) return std::nullopt;
  if (request.identity.role == Role::nobody) return refuse_stranger(request.identity);
  return error_response(403, fmt::format("This needs the role {}; {} has the role {}", to_word(needed),
                                         request.identity.name, to_word(request.identity.role)));
}

// Whether the client has what the response would tell it.
bool is_known(const Response& response, const std::string& known_tags) {
  if (known_tags.empty() || response.status != 200) return false;
  const auto tag = std::ranges::find(response.headers, "ETag", &std::pair<std::string, std::string>::first);
  return tag != response.headers.end() && names_tag(known_tags, tag->second, true);
}

void drop_body(Response& response) {
  response.status = 304;
  response.body.clear();
  response.content_type.clear();
  response.file.reset();
}

Response refuse_method(const std::string& method, std::set<std::string> allowed) {
  if (allowed.contains("GET")) allowed.insert("HEAD");
  allowed.insert("OPTIONS");
  Response response = method == "OPTIONS" ? empty_response() : error_response(405, "Method not allowed");
  response.headers.emplace_back("Allow", fmt::format("{}", fmt::join(allowed, ", ")));
  return response;
}

}  // namespace

void Router::add(std::string_view method, std::string_view pattern, RouteHandler handler, RouteRules rules) {
  const Role role = rules.role.value_or(method == "GET" ? Role::viewer : Role::operator_);
  routes_.push_back({std::string(method), parse_target(pattern).value().path, std::move(handler), role,
                     rules.starts_something, rules.is_page});
}

std::vector<std::string> Router::list() const {
  std::vector<std::string> list;
  for (const Route& route : routes_)
    if (!route.is_page) list.push_back(fmt::format("{} /{}", route.method, fmt::join(route.pattern, "/")));
  return list;
}

Async<Response> Router::route(Request request) const {
  const bool reads = request.method == "GET" || request.method == "HEAD";
  const bool takes_gzip = accepts_gzip(request.accept_encoding);
  const std::string known_tags = reads ? request.if_none_match : std::string();
  Response response = co_await answer_or_refuse(std::move(request));
  if (is_known(response, known_tags)) drop_body(response);
  if (!is_compressible(response)) co_return response;
  response.headers.emplace_back("Vary", "Accept-Encoding");
  if (!takes_gzip) co_return response;
  co_return co_await compress(std::move(response));
}

Async<Response> Router::answer_or_refuse(Request request) const {
  try {
    co_return co_await dispatch(std::move(request));
  } catch (const HttpError& error) {
    co_return error.response();
  } catch (const std::exception& failure) {
    log(LogLevel::error, "Web", format_traceback(std::current_exception()));
    co_return error_response(500, failure.what());
  }
}

Async<Response> Router::dispatch(Request request) const {
  std::set<std::string> allowed;
  for (const Route& route : routes_) {
    const auto parameters = match(route.pattern, request.target.path);
    if (!parameters) continue;
    if (answers(route.method, request.method)) {
      std::optional<Response> refusal = find_refusal(request, route.role, route.starts_something);
      if (refusal) co_return std::move(*refusal);
      Response response = co_await route.handler(request, *parameters);
      co_return response;
    }
    allowed.insert(route.method);
  }
  // Strangers learn nothing of the API.
  if (request.target.path.front() == "api" && request.identity.role == Role::nobody)
    co_return refuse_stranger(request.identity);
  if (!allowed.empty()) co_return refuse_method(request.method, std::move(allowed));
  co_return error_response(404, "Not found");
}

}  // namespace weir
