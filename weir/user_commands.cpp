#include "weir/user_commands.h"

#include <fmt/core.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "backend/base/time_text.h"
#include "backend/platform/failure.h"
#include "backend/web/access/secrets.h"
#include "backend/web/access/users_file.h"
#include "weir/password_input.h"

namespace weir {

namespace {

WallTime wall_now() { return std::chrono::system_clock::now(); }

// The name is checked before somebody types a password for it.
void add_user(const UsersFile& file, const UserCommand& command) {
  User user{command.name, parse_role(command.role).value(), {}};
  UserList(file.load()).add(user);
  user.password_hash = hash_password(read_new_password());
  file.change([&](UserList& list) { list.add(user); });
  fmt::print("User {} is added with the role {}\n", user.name, command.role);
}

void change_password(const UsersFile& file, const std::string& name) {
  const std::string absent = fmt::format("There is no user \"{}\"", name);
  if (!file.load().find_user(name)) throw std::runtime_error(absent);
  const std::string hash = hash_password(read_new_password());
  file.change([&](UserList& list) {
    User* user = list.find_user(name);
    if (!user) throw ValueError(absent);
    user->password_hash = hash;
  });
  fmt::print("The password of {} is changed\n", name);
}

void remove_user(const UsersFile& file, const std::string& name) {
  file.change([&](UserList& list) { list.remove_user(name); });
  fmt::print("User {} is removed\n", name);
}

void list_users(const UserList& list) {
  for (const User& user : list.users) fmt::print("{:<24} {}\n", user.name, to_word(user.role));
}

void add_token(const UsersFile& file, const UserCommand& command) {
  const std::string secret = make_secret(token_prefix);
  ApiToken token{command.name, parse_role(command.role).value(), hash_secret(secret), wall_now()};
  if (command.expires) token.expires = token.created + *command.expires;
  bool has_users = false;
  file.change([&](UserList& list) {
    list.add(token);
    has_users = !list.users.empty();
  });
  fmt::print("{}\n", secret);
  std::fflush(stdout);
  fmt::print(stderr, "This is shown once. Send it as: Authorization: Bearer {}...\n", token_prefix);
  if (!has_users) fmt::print(stderr, "It is needed once there is a user: weir user add NAME --role admin\n");
}

void remove_token(const UsersFile& file, const std::string& name) {
  file.change([&](UserList& list) { list.remove_token(name); });
  fmt::print("Token {} is removed\n", name);
}

std::string describe_expiry(const ApiToken& token) {
  if (!token.expires) return "never expires";
  return (*token.expires <= wall_now() ? "expired " : "expires ") + to_iso8601(*token.expires);
}

void list_tokens(const UserList& list) {
  for (const ApiToken& token : list.tokens)
    fmt::print("{:<24} {:<9} {}\n", token.name, to_word(token.role), describe_expiry(token));
}

void run(const UsersFile& file, const UserCommand& command) {
  using Action = UserCommand::Action;
  switch (command.action) {
    case Action::add_user:
      return add_user(file, command);
    case Action::list_users:
      return list_users(file.load());
    case Action::change_password:
      return change_password(file, command.name);
    case Action::remove_user:
      return remove_user(file, command.name);
    case Action::add_token:
      return add_token(file, command);
    case Action::list_tokens:
      return list_tokens(file.load());
    case Action::remove_token:
      return remove_token(file, command.name);
  }
}

}  // namespace

int run_user_command(const UserCommand& command) {
  // As the server does, which may not have run yet.
  if (!command.role.empty()) std::filesystem::create_directories(command.data);
  run(UsersFile(command.data), command);
  return EXIT_SUCCESS;
}

}  // namespace weir
