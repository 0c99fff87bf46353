#include "backend/services/configuration/server_settings.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <sstream>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "backend/services/configuration/setting_table.h"

namespace weir {

namespace {

constexpr std::size_t longest_configuration = 1 << 16;
constexpr std::string_view config_variable = "WEIR_CONFIG";

using Variables = std::map<std::string, std::string, std::less<>>;

Variables parse_environment(const std::vector<std::string>& environment) {
  Variables result;
  for (const std::string& text : environment) {
    const std::size_t separator = text.find('=');
    if (separator != std::string::npos) result.emplace(text.substr(0, separator), text.substr(separator + 1));
  }
  return result;
}

/// The command line: what to do, and the settings that it names.
class CommandLine {
 public:
  CommandLine() {
    app_.set_help_flag();
    app_.set_help_all_flag("-h,--help", "print this help");
    app_.set_version_flag("--version", "weir " + Config::VERSION);
    app_.require_subcommand(1);
    serve_ = app_.add_subcommand("serve", "run the server");
    config_ =
        serve_->add_option("--config", "configuration file: lines of NAME = VALUE, the names as here (WEIR_CONFIG)");
    config_->type_name("FILE")->expected(1);
    for (const Setting& setting : setting_table()) add(setting);
    app_.footer(
        "A setting may also stand in the environment (its name is given in brackets) or in the configuration\n"
        "file. The command line goes before the environment, which goes before the file.");
  }

  /// Returns what is to be printed instead of running the server; empty when it is to run.
  std::string parse(std::vector<std::string> arguments) {
    std::reverse(arguments.begin(), arguments.end());
    try {
      app_.parse(std::move(arguments));
    } catch (const CLI::Success& asked) {
      return answer(asked);
    } catch (const CLI::Error& error) {
      throw SettingsError(fmt::format("{} (see weir --help)", error.what()));
    }
    return {};
  }

  std::string config_file() const { return config_->empty() ? std::string() : config_->results().front(); }

  void apply(ServerSettings& settings) const {
    for (const Setting& setting : setting_table()) {
      const CLI::Option* option = options_.at(setting.name);
      if (!option->empty()) apply_setting(settings, setting, option->results().back(), "--" + setting.name);
    }
  }

 private:
  void add(const Setting& setting) {
    const std::string description = fmt::format("{} [{}]", setting.description, setting.environment_name());
    CLI::Option* option = setting.value_name.empty() ? serve_->add_flag("--" + setting.name, description)
                                                     : serve_->add_option("--" + setting.name, description);
    if (!setting.value_name.empty()) option->type_name(setting.value_name)->expected(1);
    option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    options_[setting.name] = option;
  }

  std::string answer(const CLI::Success& asked) {
    std::ostringstream text;
    app_.exit(asked, text, text);
    return text.str();
  }

  CLI::App app_{"Weir, a live transcoding server", "weir"};
  CLI::App* serve_ = nullptr;
  CLI::Option* config_ = nullptr;
  std::map<std::string, CLI::Option*> options_;
};

const Setting* find_setting(const std::string& name) {
  const auto& table = setting_table();
  const auto found = std::find_if(table.begin(), table.end(), [&](const Setting& s) { return s.name == name; });
  return found == table.end() ? nullptr : &*found;
}

std::vector<CLI::ConfigItem> parse_configuration(const std::string& path) {
  try {
    std::istringstream text(read_file(path, longest_configuration));
    return CLI::ConfigINI().from_config(text);
  } catch (const std::exception& failure) {
    throw SettingsError(fmt::format("configuration file {}: {}", path, failure.what()));
  }
}

void apply_configuration(ServerSettings& settings, const std::string& path) {
  for (const CLI::ConfigItem& item : parse_configuration(path)) {
    const Setting* setting = find_setting(item.fullname());
    if (!setting) throw SettingsError(fmt::format("configuration file {}: unknown setting {}", path, item.fullname()));
    if (item.inputs.size() != 1)
      throw SettingsError(fmt::format("configuration file {}: {} needs one value", path, item.fullname()));
    apply_setting(settings, *setting, item.inputs.front(), "configuration file " + path);
  }
}

void apply_environment(ServerSettings& settings, const Variables& variables) {
  for (const Setting& setting : setting_table()) {
    const auto variable = variables.find(setting.environment_name());
    if (variable != variables.end()) apply_setting(settings, setting, variable->second, variable->first);
  }
}

std::string configuration_path(const CommandLine& command_line, const Variables& variables) {
  const auto variable = variables.find(config_variable);
  if (!command_line.config_file().empty() || variable == variables.end()) return command_line.config_file();
  return variable->second;
}

}  // namespace

Invocation read_settings(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  CommandLine command_line;
  const std::string output = command_line.parse(arguments);
  if (!output.empty()) return {std::nullopt, output};
  const Variables variables = parse_environment(environment);
  ServerSettings settings;
  const std::string path = configuration_path(command_line, variables);
  if (!path.empty()) apply_configuration(settings, path);
  apply_environment(settings, variables);
  command_line.apply(settings);
  return {settings, {}};
}

}  // namespace weir
