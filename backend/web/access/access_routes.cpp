#include "backend/web/access/access_routes.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/time_text.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/web/access/secrets.h"

namespace weir {

namespace {

/// Keeps a text in a set for its scope.
class Entry {
 public:
  Entry(std::set<std::string>& set, std::string text) : set_(set), entry_(set.insert(std::move(text)).first) {}
  ~Entry() { set_.erase(entry_); }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

 private:
  std::set<std::string>& set_;
  std::set<std::string>::iterator entry_;
};

std::string read_text(const Value& form, const char* name, std::size_t max_bytes) {
  const Value& text = member(form, name);
  if (!text.is_string()) throw HttpError(400, fmt::format("\"{}\" must be a text", name));
  if (text.get_ref<const std::string&>().size() > max_bytes)
    throw HttpError(400, fmt::format("\"{}\" is longer than {} bytes", name, max_bytes));
  return text.get<std::string>();
}

std::string make_cookie(const std::string& secret, std::chrono::seconds age, bool secure) {
  return fmt::format("weir_session={}; Path=/; Max-Age={}; HttpOnly; SameSite=Strict{}", secret, age.count(),
                     secure ? "; Secure" : "");
}

std::string_view to_word(Identity::Proof proof) {
  switch (proof) {
    case Identity::Proof::none:
      return "address";
    case Identity::Proof::loopback:
      return "loopback";
    case Identity::Proof::session:
      return "session";
    case Identity::Proof::token:
      return "token";
  }
  return {};
}

Response too_many(std::string_view message, std::chrono::seconds wait) {
  Response response = error_response(429, message);
  response.headers.emplace_back("Retry-After", std::to_string(wait.count()));
  return response;
}

}  // namespace

void AccessRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const RouteRules open{.role = Role::nobody};
  router.add("POST", "/api/login", [this](const Request& r, Parameters) { return login(read_login(r)); }, open);
  router.add("POST", "/api/logout", [this](const Request& r, Parameters) { return immediate(logout(r)); }, open);
  router.add("GET", "/api/me", [this](const Request& r, Parameters) { return immediate(me(r)); });
}

AccessRoutes::Login AccessRoutes::read_login(const Request& request) const {
  const Value form = read_form(request);
  return {read_text(form, "name", UserList::max_name), read_text(form, "password", max_password_bytes),
          request.client_address, is_secure(request)};
}

bool AccessRoutes::is_secure(const Request& request) const {
  return request.secure || access_.hosts().is_secure(request.host);
}

Async<Response> AccessRoutes::login(Login login) {
  if (!access_.users().are_needed()) throw HttpError(409, "There are no users: whoever asks from this machine may");
  const std::string network = network_of(login.address);
  const std::chrono::seconds refusal = attempts_.refusal(login.address, now());
  if (refusal > std::chrono::seconds(0))
    co_return too_many(fmt::format("Too many failed logins; try again in {} s", refusal.count()), refusal);
  if (trying_.contains(network))
    co_return too_many("Another login from this address is under way", std::chrono::seconds(1));
  const Entry entry(trying_, network);
  const std::chrono::seconds delay = attempts_.delay(login.name, now());
  if (delay > std::chrono::seconds(0)) co_await sleep(delay);
  Response response = co_await try_login(std::move(login));
  co_return response;
}

Async<Response> AccessRoutes::try_login(Login login) {
  const User* known = access_.users().get().find_user(login.name);
  const std::string hash = known ? known->password_hash : std::string();
  if (passwords_.is_full()) co_return too_many("Too many logins at once", std::chrono::seconds(2));
  const bool fits = co_await passwords_.check(hash, login.password);
  // The user may have been removed meanwhile.
  const User* user = access_.users().get().find_user(login.name);
  if (!fits || !user || user->password_hash != hash) co_return refuse(login);
  const std::string secret = access_.sessions().begin(*user, now());
  log(LogLevel::info, "Access", fmt::format("{} logged in from {}", user->name, login.address));
  Response response = json_response({{"name", user->name}, {"role", to_word(user->role)}});
  response.headers.emplace_back("Set-Cookie", make_cookie(secret, Sessions::age, login.secure));
  co_return response;
}

Response AccessRoutes::refuse(const Login& login) {
  attempts_.fail(login.address, login.name, now());
  // The name may be a password that was typed in the wrong field.
  log({.level = LogLevel::warning, .name = "Access", .text = fmt::format("Failed login from {}", login.address)});
  Response response = error_response(401, "Wrong name or password");
  response.headers.emplace_back("WWW-Authenticate", bearer_challenge);
  return response;
}

Response AccessRoutes::logout(const Request& request) {
  access_.sessions().end(find_session_cookie(request));
  Response response = empty_response();
  response.headers.emplace_back("Set-Cookie", make_cookie({}, std::chrono::seconds(0), is_secure(request)));
  return response;
}

Response AccessRoutes::me(const Request& request) {
  const Identity& identity = request.identity;
  return json_response({{"name", identity.name.empty() ? Value() : Value(identity.name)},
                        {"role", to_word(identity.role)},
                        {"by", to_word(identity.proof)}});
}

}  // namespace weir
