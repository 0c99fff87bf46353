#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/async.h"
#include "backend/web/access/role.h"
#include "backend/web/request.h"
#include "backend/web/response.h"

namespace weir {

/// The segments that a pattern's "{…}" stood for, in order.
using PathParameters = std::vector<std::string>;

/// Handles the requests of one route. What of it waits gets values: neither the request nor the parameters outlive the
/// call.
using RouteHandler = std::function<Async<Response>(const Request&, const PathParameters&)>;

/// Who may use a route.
struct RouteRules {
  /// The least role; nothing: a viewer for GET, an operator for any other method.
  std::optional<Role> role = {};
  /// A GET that starts something: pages of other sites may not send it, like any other method.
  bool starts_something = false;
  /// A page of the console, no call of the API.
  bool is_page = false;
};

/// What a client without an identity is told to send (RFC 6750).
inline constexpr const char* bearer_challenge = "Bearer realm=\"weir\"";

/// Finds the handler of a request by method and path, and turns failures into error responses.
class Router {
 public:
  /// `pattern` is a path whose segments may be "{name}", which stands for any text that is not empty, or
  /// "{name:number}", which stands for digits. Of several patterns that match a path the one added first answers. A
  /// handler of GET answers HEAD too, and where none is added for OPTIONS the answer is the list of methods.
  void add(std::string_view method, std::string_view pattern, RouteHandler handler, RouteRules rules = {});

  /// The calls in the order in which they were added, such as "GET /api/streams/{id}"; pages are none.
  std::vector<std::string> list() const;

  /// Never fails: an `HttpError` becomes its status, any other failure 500; it is logged then. An answer whose ETag the
  /// client knows is 304; texts are compressed for clients that ask for it.
  Async<Response> route(Request request) const;

 private:
  struct Route {
    std::string method;
    std::vector<std::string> pattern;
    RouteHandler handler;
    Role role;
    bool starts_something;
    bool is_page;
  };

  Async<Response> answer_or_refuse(Request request) const;
  Async<Response> dispatch(Request request) const;

  std::vector<Route> routes_;
};

}  // namespace weir
