#include "backend/services/configuration/user_command.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <array>
#include <map>
#include <stdexcept>

#include "backend/base/numbers.h"

namespace weir {

namespace {

using Action = UserCommand::Action;

struct Verb {
  const char* group;
  const char* name;
  const char* description;
  Action action;
};

constexpr std::array verbs{
    Verb{"user", "add", "add a user; the password is asked for, or read from standard input", Action::add_user},
    Verb{"user", "list", "list the users", Action::list_users},
    Verb{"user", "passwd", "change a user's password, which logs the user out", Action::change_password},
    Verb{"user", "remove", "remove a user", Action::remove_user},
    Verb{"token", "add", "add a token for a program, which is shown once", Action::add_token},
    Verb{"token", "list", "list the tokens", Action::list_tokens},
    Verb{"token", "remove", "remove a token", Action::remove_token},
};

bool has_name(Action action) { return action != Action::list_users && action != Action::list_tokens; }
bool has_role(Action action) { return action == Action::add_user || action == Action::add_token; }

void add_verb(CLI::App& group, const Verb& verb, void (*add_common)(CLI::App&)) {
  CLI::App& subcommand = *group.add_subcommand(verb.name, verb.description);
  if (has_name(verb.action)) subcommand.add_option("NAME", "letters, digits and . _ - @")->required();
  if (has_role(verb.action))
    subcommand.add_option("--role", "admin: everything; operator: start, stop, edit; viewer: read, without secrets")
        ->type_name("ROLE")
        ->required()
        ->check(CLI::IsMember({"admin", "operator", "viewer"}));
  if (verb.action == Action::add_token)
    subcommand.add_option("--expires", "days, hours or minutes from now on, such as 30d, 12h, 90m (default: never)")
        ->type_name("TIME");
  add_common(subcommand);
}

std::chrono::seconds to_validity(const std::string& text) {
  static const std::map<char, std::chrono::seconds> units{
      {'d', std::chrono::days(1)}, {'h', std::chrono::hours(1)}, {'m', std::chrono::minutes(1)}};
  constexpr long long max_days = 36'500;
  const auto unit = text.empty() ? units.end() : units.find(text.back());
  const auto count = parse_integer(text.substr(0, text.empty() ? 0 : text.size() - 1));
  const bool is_valid =
      unit != units.end() && count && *count > 0 && *count <= std::chrono::days(max_days) / unit->second;
  if (!is_valid)
    throw std::invalid_argument(
        fmt::format("--expires: \"{}\" is not a number of days, hours or minutes such as 30d, 12h, 90m", text));
  return unit->second * *count;
}

std::string value_of(const CLI::App& subcommand, const char* option) {
  const CLI::Option* given = subcommand.get_option_no_throw(option);
  return given && !given->empty() ? given->as<std::string>() : std::string();
}

UserCommand read(const Verb& verb, const CLI::App& subcommand) {
  UserCommand command{
      .action = verb.action, .name = value_of(subcommand, "NAME"), .role = value_of(subcommand, "--role")};
  const std::string expires = value_of(subcommand, "--expires");
  if (!expires.empty()) command.expires = to_validity(expires);
  return command;
}

}  // namespace

void add_user_commands(CLI::App& app, void (*add_common)(CLI::App& subcommand)) {
  CLI::App& users = *app.add_subcommand("user", "who may log in: add, list, passwd, remove")->require_subcommand(1);
  CLI::App& tokens = *app.add_subcommand("token", "credentials of programs: add, list, remove")->require_subcommand(1);
  for (const Verb& verb : verbs) add_verb(std::string_view(verb.group) == "user" ? users : tokens, verb, add_common);
}

std::optional<ChosenUserCommand> find_user_command(const CLI::App& app) {
  for (const Verb& verb : verbs) {
    const CLI::App* subcommand = app.get_subcommand(verb.group)->get_subcommand(verb.name);
    if (subcommand->parsed()) return ChosenUserCommand{read(verb, *subcommand), subcommand};
  }
  return std::nullopt;
}

}  // namespace weir
