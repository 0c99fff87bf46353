#include "backend/web/access/user_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "backend/base/members.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/journal.h"
#include "backend/platform/failure.h"
#include "backend/platform/loop.h"
#include "backend/web/access/secrets.h"

namespace weir {

namespace {

std::string read_text(const Value& form, const char* name) {
  const Value& text = member(form, name);
  if (!text.is_string()) throw HttpError(400, fmt::format("\"{}\" must be a text", name));
  return text.get<std::string>();
}

Role read_role(const Value& form) {
  const auto role = parse_role(read_text(form, "role"));
  if (!role) throw HttpError(400, "\"role\" must be admin, operator or viewer");
  return *role;
}

std::string read_password(const Value& form) {
  std::string password = read_text(form, "password");
  if (password.size() < min_password_bytes || password.size() > max_password_bytes)
    throw HttpError(400, fmt::format("\"password\" must have {} to {} bytes", min_password_bytes, max_password_bytes));
  return password;
}

// Seconds from now on.
std::optional<WallTime> read_expiry(const Value& form, WallTime now) {
  const Value& seconds = member(form, "expires");
  constexpr long long max_seconds = 36'500LL * 86'400;
  if (seconds.is_null()) return std::nullopt;
  if (!seconds.is_number_integer() || seconds.get<long long>() < 1 || seconds.get<long long>() > max_seconds)
    throw HttpError(400, fmt::format("\"expires\" must be a number of seconds (1 to {})", max_seconds));
  return now + std::chrono::seconds(seconds.get<long long>());
}

// The command line can do it; here nobody could undo it.
void check_that_an_admin_stays(const UserList& before, const UserList& after) {
  if (before.users.empty() && after.users.empty()) return;
  if (std::ranges::find(after.users, Role::admin, &User::role) == after.users.end())
    throw ValueError("There would be no admin; add one first");
}

void tell(JournalKind kind, std::string text, std::string by) {
  journal().record({.kind = kind, .by = std::move(by), .text = std::move(text)});
}

}  // namespace

void UserRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const RouteRules admin{.role = Role::admin};
  router.add("GET", "/api/users", [this](const Request&, Parameters) { return immediate(list_users()); }, admin);
  router.add(
      "POST", "/api/users", [this](const Request& r, Parameters) { return add_user(read_form(r), r.by()); }, admin);
  router.add(
      "PATCH", "/api/users/{name}",
      [this](const Request& r, Parameters p) { return change_user(p[0], read_form(r), r.by()); }, admin);
  router.add(
      "DELETE", "/api/users/{name}",
      [this](const Request& r, Parameters p) {
        return remove("user", p[0], [name = p[0]](UserList& list) { list.remove_user(name); }, r.by());
      },
      admin);
  router.add("GET", "/api/tokens", [this](const Request&, Parameters) { return immediate(list_tokens()); }, admin);
  router.add(
      "POST", "/api/tokens", [this](const Request& r, Parameters) { return add_token(read_form(r), r.by()); }, admin);
  router.add(
      "DELETE", "/api/tokens/{name}",
      [this](const Request& r, Parameters p) {
        return remove("token", p[0], [name = p[0]](UserList& list) { list.remove_token(name); }, r.by());
      },
      admin);
}

Response UserRoutes::list_users() {
  Value users = Value::array();
  for (const User& user : users_.get().users) users.push_back({{"name", user.name}, {"role", to_word(user.role)}});
  return json_response(users);
}

Response UserRoutes::list_tokens() {
  Value tokens = Value::array();
  for (const ApiToken& token : users_.get().tokens)
    tokens.push_back({{"name", token.name},
                      {"role", to_word(token.role)},
                      {"created", to_iso8601(token.created)},
                      {"expires", token.expires ? Value(to_iso8601(*token.expires)) : Value()}});
  return json_response(tokens);
}

Async<Response> UserRoutes::add_user(Value form, std::string by) {
  User user{read_text(form, "name"), read_role(form), {}};
  user.password_hash = co_await hash_password_of(std::move(form));
  co_await apply([user](UserList& list) { list.add(user); });
  tell(JournalKind::added, "user " + user.name, std::move(by));
  co_return json_response({{"name", user.name}, {"role", to_word(user.role)}}, 201);
}

// A new password logs the user out.
Async<Response> UserRoutes::change_user(std::string name, Value form, std::string by) {
  std::optional<Role> role;
  std::string hash;
  if (form.contains("role")) role = read_role(form);
  if (form.contains("password")) hash = co_await hash_password_of(std::move(form));
  if (!users_.get().find_user(name)) throw HttpError(404, fmt::format("There is no user \"{}\"", name));
  co_await apply([name, role, hash](UserList& list) {
    User* user = list.find_user(name);
    if (!user) throw ValueError(fmt::format("There is no user \"{}\"", name));
    if (role) user->role = *role;
    if (!hash.empty()) user->password_hash = hash;
  });
  tell(JournalKind::changed, "user " + name, std::move(by));
  co_return ok_response();
}

Async<std::string> UserRoutes::hash_password_of(Value form) {
  const std::string password = read_password(form);
  if (passwords_.is_full()) throw HttpError(429, "Too many passwords are being checked; try again in some seconds");
  std::string hash = co_await passwords_.hash(password);
  co_return hash;
}

Async<Response> UserRoutes::add_token(Value form, std::string by) {
  const WallTime created = Loop::current().clock().wall();
  const std::string secret = make_secret(token_prefix);
  const ApiToken token{read_text(form, "name"), read_role(form), hash_secret(secret), created,
                       read_expiry(form, created)};
  co_await apply([token](UserList& list) { list.add(token); });
  tell(JournalKind::added, "token " + token.name, std::move(by));
  co_return json_response({{"name", token.name}, {"token", secret}}, 201);
}

Async<Response> UserRoutes::remove(std::string what, std::string name, Change change, std::string by) {
  try {
    UserList tried = users_.get();
    change(tried);
  } catch (const ValueError& failure) {
    throw HttpError(404, failure.what());
  }
  co_await apply(std::move(change));
  tell(JournalKind::deleted, what + " " + name, std::move(by));
  co_return empty_response();
}

Async<> UserRoutes::apply(Change change) {
  if (!users_.file()) throw HttpError(409, "This server has no data directory");
  try {
    co_await disk_.run([file = *users_.file(), change = std::move(change)] {
      file.change([&](UserList& list) {
        const UserList before = list;
        change(list);
        check_that_an_admin_stays(before, list);
      });
    });
  } catch (const ValueError& failure) {
    throw HttpError(409, failure.what());
  }
}

}  // namespace weir
