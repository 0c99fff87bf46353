#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace CLI {
class App;
}  // namespace CLI

namespace weir {

/// "weir user …" and "weir token …": who may use a server.
struct UserCommand {
  enum class Action { add_user, list_users, change_password, remove_user, add_token, list_tokens, remove_token };

  Action action = Action::list_users;
  std::string name = {};                             ///< of the user or token; empty for the lists
  std::string role = {};                             ///< "admin", "operator" or "viewer" where one is added
  std::optional<std::chrono::seconds> expires = {};  ///< of a new token; nothing: never
  std::string data = {};                             ///< the data directory
};

/// Adds the subcommands, with options of their own but those of `add_common`.
void add_user_commands(CLI::App& app, void (*add_common)(CLI::App& subcommand));

/// A subcommand that was chosen; `data` is left to the caller.
struct ChosenUserCommand {
  UserCommand command;
  const CLI::App* subcommand;
};
/// What the parsed command line chose; nothing when it is none of them. Throws `std::invalid_argument`.
std::optional<ChosenUserCommand> find_user_command(const CLI::App& app);

}  // namespace weir
