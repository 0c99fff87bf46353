#include "backend/web/access/access.h"

#include <boost/algorithm/string.hpp>
#include <locale>

#include "backend/base/numbers.h"
#include "backend/platform/loop.h"
#include "backend/web/request_source.h"

namespace weir {

namespace {

constexpr std::string_view session_cookie = "weir_session";

// Streams are for everybody.
bool asks_for_stream(const Request& request) {
  const std::string& first = request.target.path.front();
  return request.target.path.size() > 1 && (first == "stream" || is_number(first));
}

bool comes_from_here(const Request& request) { return !request.forwarded && is_loopback_host(request.host); }

bool collects_metrics_here(const Request& request) {
  return comes_from_here(request) && is_loopback_host(request.client_address) && request.target.path.size() == 1 &&
         request.target.path[0] == "metrics";
}

// The token of "Authorization: Bearer TOKEN".
std::string_view bearer_token(std::string_view authorization) {
  constexpr std::string_view scheme = "bearer ";
  if (!boost::istarts_with(authorization, scheme, std::locale::classic())) return {};
  return authorization.substr(scheme.size());
}

}  // namespace

bool asks_for_state(const Request& request) {
  return request.target.path.size() == 1 && (request.target.path[0] == "healthz" || request.target.path[0] == "readyz");
}

std::string find_session_cookie(const Request& request) {
  std::vector<std::string> cookies;
  boost::split(cookies, request.cookie, boost::is_any_of(";"));
  for (const std::string& cookie : cookies) {
    const std::string pair = boost::trim_copy(cookie);
    if (pair.size() > session_cookie.size() && pair.starts_with(session_cookie) && pair[session_cookie.size()] == '=')
      return pair.substr(session_cookie.size() + 1);
  }
  return {};
}

Access::Access(AccessSettings settings)
    : settings_(std::move(settings)), users_(settings_.data), hosts_(settings_.public_urls) {}

void Access::examine(Request& request) {
  request.from_other_site = hosts_.is_from_other_site(request);
  if (asks_for_stream(request)) return;
  const bool is_open = asks_for_state(request);
  if (!settings_.open_to_network && !users_.are_needed()) {
    if (comes_from_here(request)) {
      request.identity = {.role = Role::admin, .proof = Identity::Proof::loopback};
    } else if (!is_open) {
      throw HttpError(403,
                      "Only published streams can be reached through a proxy or another host name while there are no "
                      "users (weir user add NAME --role admin)");
    }
    return;
  }
  if (!is_open && !hosts_.has(request))
    throw HttpError(403, "The server is not known under this host name; start it with --public-url URL for it");
  request.identity = identify(request);
  if (request.identity.role == Role::nobody && collects_metrics_here(request)) request.identity.role = Role::viewer;
}

bool Access::still_knows(Request request) {
  const Identity before = request.identity;
  try {
    examine(request);
  } catch (const HttpError&) {
    return false;
  }
  return request.identity.role == before.role && request.identity.name == before.name;
}

Identity Access::identify(const Request& request) {
  const UserList& users = users_.get();
  const std::string_view secret = bearer_token(request.authorization);
  if (!secret.empty()) {
    const ApiToken* token = users.find_token(secret, Loop::current().clock().wall());
    if (!token) return {.wrong_token = true};
    return {.role = token->role, .name = token->name, .proof = Identity::Proof::token};
  }
  const std::string session = find_session_cookie(request);
  const User* user = session.empty() ? nullptr : sessions_.find(session, users, now());
  if (!user) return {};
  return {.role = user->role, .name = user->name, .proof = Identity::Proof::session};
}

}  // namespace weir
