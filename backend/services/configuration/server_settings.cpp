#include "backend/services/configuration/server_settings.h"

#include <arpa/inet.h>
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <boost/algorithm/string.hpp>
#include <cmath>
#include <map>
#include <sstream>

#include "backend/base/numbers.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

constexpr std::size_t max_configuration_bytes = 1 << 16;

using Texts = std::vector<std::string>;

// --- conversions: each throws `std::invalid_argument` with what the value is not ---

std::string to_nonempty(const std::string& value) {
  if (value.empty()) throw std::invalid_argument("must not be empty");
  return value;
}

int to_port(const std::string& value) {
  const auto port = parse_integer(value);
  if (!port || *port < 0 || *port > 65535) throw std::invalid_argument("is not a port (0 to 65535)");
  return static_cast<int>(*port);
}

double to_seconds(const std::string& value) {
  const auto seconds = parse_float(value);
  if (!seconds || !std::isfinite(*seconds) || *seconds <= 0)
    throw std::invalid_argument("is not a number of seconds above 0");
  return *seconds;
}

std::size_t to_count(const std::string& value) {
  const auto count = parse_integer(value);
  if (!count || *count < 0) throw std::invalid_argument("is not a whole number");
  return static_cast<std::size_t>(*count);
}

std::size_t to_history_entries(const std::string& value) {
  const auto entries = parse_integer(value);
  if (!entries || *entries < 1 || *entries > 1'000'000)
    throw std::invalid_argument("is not a number from 1 to 1000000");
  return static_cast<std::size_t>(*entries);
}

std::size_t to_days(const std::string& value) {
  const auto days = parse_integer(value);
  if (!days || *days < 1 || *days > 36'500) throw std::invalid_argument("is not a number of days from 1 to 36500");
  return static_cast<std::size_t>(*days);
}

std::size_t to_positive(const std::string& value) {
  const std::size_t count = to_count(value);
  if (count == 0) throw std::invalid_argument("is not a number above 0");
  return count;
}

std::optional<double> to_interval(const std::string& value) {
  if (value == "auto") return std::nullopt;
  const auto seconds = parse_float(value);
  if (!seconds || !std::isfinite(*seconds) || *seconds < 0)
    throw std::invalid_argument("is not a number of seconds, or auto");
  return seconds;
}

bool to_switch(const std::string& value) {
  if (value == "true" || value == "1" || value == "yes" || value == "on") return true;
  if (value == "false" || value == "0" || value == "no" || value == "off") return false;
  throw std::invalid_argument("is not true or false");
}

LogLevel to_log_level(const std::string& value) {
  static const std::map<std::string, LogLevel> levels{
      {"debug", LogLevel::debug}, {"info", LogLevel::info}, {"warning", LogLevel::warning}, {"error", LogLevel::error}};
  const auto level = levels.find(value);
  if (level == levels.end()) throw std::invalid_argument("is not debug, info, warning or error");
  return level->second;
}

LogFormat to_log_format(const std::string& value) {
  if (value == "text") return LogFormat::text;
  if (value == "json") return LogFormat::json;
  throw std::invalid_argument("is not text or json");
}

std::string to_hardware(const std::string& value) {
  if (value != "nvenc" && value != "qsv") throw std::invalid_argument("is not nvenc or qsv");
  return value;
}

// In its usual form, as connections show it.
std::string to_address(const std::string& value) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = value.find(':') == std::string::npos ? AF_INET : AF_INET6;
  if (::inet_pton(family, value.c_str(), address.data()) != 1) throw std::invalid_argument("is not an IP address");
  return ::inet_ntop(family, address.data(), text.data(), text.size());
}

std::string to_bind_address(const std::string& value) { return value == "localhost" ? "127.0.0.1" : to_address(value); }

// "https://weir.example:8443", without what follows.
std::string to_public_url(const std::string& value) {
  const auto fail = [] { throw std::invalid_argument("is not a URL like https://weir.example or http://[::1]:8080"); };
  const std::size_t scheme = value.find("://");
  const std::string name = boost::to_lower_copy(value.substr(0, scheme), std::locale::classic());
  if (scheme == std::string::npos || (name != "http" && name != "https")) fail();
  std::string authority = value.substr(scheme + 3);
  if (authority.ends_with('/')) authority.pop_back();
  if (authority.empty() || authority.find_first_of("/?#@ *") != std::string::npos) fail();
  return name + "://" + authority;
}

// --- the table ---

/// A setting: "probe-timeout" is --probe-timeout on the command line, WEIR_PROBE_TIMEOUT in the environment and
/// "probe-timeout = …" in the configuration file.
struct Setting {
  std::string name;
  std::string value_name;  ///< as the help shows it; empty for a switch
  std::string description;
  /// Stores the values that one source gives, at least one. Throws `std::invalid_argument` as the conversions.
  std::function<void(ServerSettings&, const Texts&)> set;

  std::string variable() const {
    return "WEIR_" + boost::to_upper_copy(boost::replace_all_copy(name, "-", "_"), std::locale::classic());
  }
};

/// The last value counts.
template <class Member, class Convert>
auto one(Member ServerSettings::* member, Convert convert) {
  return [=](ServerSettings& settings, const Texts& values) { settings.*member = convert(values.back()); };
}

/// All values count; each may hold several, separated by `separator`.
template <class Convert>
auto list(Texts ServerSettings::* member, char separator, Convert convert) {
  return [=](ServerSettings& settings, const Texts& values) {
    (settings.*member).clear();
    for (const std::string& value : values) {
      Texts parts;
      boost::split(parts, value, [=](char c) { return c == separator; });
      for (const std::string& part : parts) (settings.*member).push_back(convert(part));
    }
  };
}

const std::vector<Setting>& setting_table() {
  using S = ServerSettings;
  const auto as_given = [](const std::string& value) { return value; };
  static const std::vector<Setting> table{
      {"data", "DIR", "data directory: streams/ hls/ mmcb/ profiles/ uploads/ (default ./weir-data)",
       one(&S::data, to_nonempty)},
      {"bind", "ADDR", "address to listen on; needs a user unless it is a loopback address (default 127.0.0.1)",
       one(&S::bind, to_bind_address)},
      {"port", "N", "port to listen on; 0 takes a free one (default 8080)", one(&S::port, to_port)},
      {"tls-cert", "FILE", "PEM file with the certificate and its chain: the port answers by HTTPS (default: HTTP)",
       one(&S::tls_certificate, to_nonempty)},
      {"tls-key", "FILE", "PEM file with the certificate's key, without a passphrase", one(&S::tls_key, to_nonempty)},
      {"ffmpeg", "PATH", "the transcoder program (default: ffmpeg, found on PATH)", one(&S::ffmpeg, to_nonempty)},
      {"ffprobe", "PATH", "the probe program (default: ffprobe, found on PATH)", one(&S::ffprobe, to_nonempty)},
      {"probe-timeout", "SECONDS", "time after which the probe of an input gives up (default 10)",
       one(&S::probe_timeout, to_seconds)},
      {"http-output-hold", "SECONDS",
       "time for which viewers of HTTP outputs are held while no transcoder runs (default 30)",
       one(&S::http_output_hold, to_seconds)},
      {"max-viewers", "N", "viewers of all streams at once (default 0: no limit)", one(&S::max_viewers, to_count)},
      {"max-viewers-per-stream", "N", "the same for each stream", one(&S::max_viewers_per_stream, to_count)},
      {"max-viewers-per-address", "N", "the same for each address of viewers",
       one(&S::max_viewers_per_address, to_count)},
      {"history-entries", "N", "entries of the history that are kept of each stream (default 2000)",
       one(&S::history_entries, to_history_entries)},
      {"history-days", "N", "days for which the history is kept (default 90)", one(&S::history_days, to_days)},
      {"public-url", "URL",
       "https://NAME or http://NAME:PORT, repeatable: how browsers reach the server where that is not the bound "
       "address",
       list(&S::public_urls, ',', to_public_url)},
      {"trusted-proxy", "ADDR",
       "address of a proxy in front of the server, repeatable; its X-Forwarded-For header names the viewer",
       list(&S::trusted_proxies, ',', to_address)},
      {"restore-interval", "SECONDS|auto",
       "between the streams that are started again with the server (default 3); auto: ten launches at a time while "
       "processors idle",
       one(&S::restore_interval, to_interval)},
      {"file-root", "DIR",
       "directory below which filters may read files, repeatable or separated by colons (default: the upload "
       "directory)",
       list(&S::file_roots, ':', to_nonempty)},
      {"hardware", "LIST", "nvenc, qsv or both, separated by a comma: prepare the transcoders' environment for them",
       list(&S::hardware, ',', to_hardware)},
      {"gpu-patch-library", "PATH", "library preloaded into the transcoders with --hardware nvenc (default: none)",
       one(&S::gpu_patch_library, as_given)},
      {"webhooks", "FILE", "JSON file with a list of webhooks, beside those that the API keeps (default: none)",
       one(&S::webhooks, to_nonempty)},
      {"webhook-private-addresses", "", "allow receivers of webhooks with private and loopback addresses",
       one(&S::webhook_private_addresses, to_switch)},
      {"stream-log-dir", "DIR", "directory for the streams' logs as files ID.log (default: none are written)",
       one(&S::stream_log_dir, as_given)},
      {"stream-log-size", "MIB", "size at which such a file is renamed to ID.log.1 (default 10)",
       one(&S::stream_log_mebibytes, to_positive)},
      {"stream-log-files", "N", "renamed files that are kept of a stream (default 3)",
       one(&S::stream_log_files, to_count)},
      {"log-level", "L", "debug, info, warning or error (default info)", one(&S::log_level, to_log_level)},
      {"log-format", "F", "text or json: one object a line (default text; under systemd with its priorities)",
       one(&S::log_format, to_log_format)},
      {"no-assertions", "", "skip the internal assertion checks",
       one(&S::assertions, [](const std::string& value) { return !to_switch(value); })},
  };
  return table;
}

void apply_setting(ServerSettings& settings, const Setting& setting, const Texts& values, std::string_view source) {
  try {
    setting.set(settings, values);
  } catch (const std::invalid_argument& failure) {
    throw SettingsError(fmt::format("{}: \"{}\" {}", source, boost::join(values, " "), failure.what()));
  }
}

// --- the sources ---

void add_option(CLI::App& subcommand, const Setting& setting) {
  const std::string description = fmt::format("{} [{}]", setting.description, setting.variable());
  CLI::Option& option = setting.value_name.empty() ? *subcommand.add_flag("--" + setting.name, description)
                                                   : *subcommand.add_option("--" + setting.name, description);
  option.multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  if (!setting.value_name.empty()) option.type_name(setting.value_name)->expected(1);
}

void add_config_option(CLI::App& subcommand) {
  subcommand.add_option("--config", "configuration file: lines of NAME = VALUE, the names as here [WEIR_CONFIG]")
      ->type_name("FILE");
}

// Where the server's data is found, which is all that other subcommands need to know of it.
void add_data_options(CLI::App& subcommand) {
  add_config_option(subcommand);
  add_option(subcommand, *std::ranges::find(setting_table(), "data", &Setting::name));
}

void add_options(CLI::App& app) {
  app.set_help_flag();
  app.set_help_all_flag("-h,--help", "print this help");
  app.set_version_flag("--version", "weir " + Config::VERSION);
  app.require_subcommand(1);
  CLI::App& serve = *app.add_subcommand("serve", "run the server");
  add_config_option(serve);
  for (const Setting& setting : setting_table()) add_option(serve, setting);
  add_user_commands(app, add_data_options);
  app.footer(
      "A setting may also be given in the environment (its name is in brackets) or in the configuration file. The\n"
      "command line overrides the environment, which overrides the file.");
}

// Returns what is to be printed in place of running the server; empty when it is to run.
std::string parse_command_line(CLI::App& app, Texts arguments) {
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(std::move(arguments));
    return {};
  } catch (const CLI::Success& asked) {
    std::ostringstream text;
    app.exit(asked, text, text);
    return text.str();
  } catch (const CLI::Error& error) {
    throw SettingsError(fmt::format("{} (see weir --help)", error.what()));
  }
}

std::vector<CLI::ConfigItem> parse_configuration(const std::string& path) {
  try {
    std::istringstream text(read_file(path, max_configuration_bytes));
    return CLI::ConfigINI().from_config(text);
  } catch (const std::exception& failure) {
    throw SettingsError(fmt::format("configuration file {}: {}", path, failure.what()));
  }
}

void apply_configuration(ServerSettings& settings, const std::string& path) {
  for (const CLI::ConfigItem& item : parse_configuration(path)) {
    const std::string source = fmt::format("configuration file {}: {}", path, item.fullname());
    const auto setting = std::ranges::find(setting_table(), item.fullname(), &Setting::name);
    if (setting == setting_table().end()) throw SettingsError(source + " is not a setting");
    if (item.inputs.empty()) throw SettingsError(source + " needs a value");
    apply_setting(settings, *setting, item.inputs, source);
  }
}

void apply_environment(ServerSettings& settings, const EnvironmentVariable& variable) {
  for (const Setting& setting : setting_table())
    if (const char* value = variable(setting.variable().c_str()))
      apply_setting(settings, setting, {value}, setting.variable());
}

void apply_command_line(ServerSettings& settings, const CLI::App& subcommand) {
  for (const Setting& setting : setting_table()) {
    const CLI::Option* option = subcommand.get_option_no_throw("--" + setting.name);
    if (option && !option->empty()) apply_setting(settings, setting, option->results(), "--" + setting.name);
  }
}

std::string configuration_path(const CLI::App& subcommand, const EnvironmentVariable& variable) {
  const CLI::Option& option = *subcommand.get_option("--config");
  if (!option.empty()) return option.as<std::string>();
  const char* path = variable("WEIR_CONFIG");
  return path ? path : "";
}

ServerSettings collect_settings(const CLI::App& subcommand, const EnvironmentVariable& variable) {
  ServerSettings settings;
  const std::string path = configuration_path(subcommand, variable);
  if (!path.empty()) apply_configuration(settings, path);
  apply_environment(settings, variable);
  apply_command_line(settings, subcommand);
  return settings;
}

ServerSettings read_server_settings(const CLI::App& subcommand, const EnvironmentVariable& variable) {
  ServerSettings settings = collect_settings(subcommand, variable);
  if (settings.tls_certificate.empty() != settings.tls_key.empty())
    throw SettingsError(fmt::format("tls-cert and tls-key are needed together; {} is missing",
                                    settings.tls_key.empty() ? "tls-key" : "tls-cert"));
  return settings;
}

std::optional<ChosenUserCommand> read_user_command(const CLI::App& app) {
  try {
    return find_user_command(app);
  } catch (const std::invalid_argument& failure) {
    throw SettingsError(failure.what());
  }
}

}  // namespace

bool is_loopback_address(const std::string& address) {
  in_addr v4{};
  in6_addr v6{};
  if (::inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  return ::inet_pton(AF_INET6, address.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

Invocation read_settings(const std::vector<std::string>& arguments, const EnvironmentVariable& variable) {
  CLI::App app{"Weir, a live transcoding server", "weir"};
  add_options(app);
  const std::string output = parse_command_line(app, arguments);
  if (!output.empty()) return {std::nullopt, output};
  std::optional<ChosenUserCommand> chosen = read_user_command(app);
  if (!chosen) return {read_server_settings(*app.get_subcommand("serve"), variable)};
  chosen->command.data = collect_settings(*chosen->subcommand, variable).data;
  return {std::nullopt, {}, std::move(chosen->command)};
}

}  // namespace weir
