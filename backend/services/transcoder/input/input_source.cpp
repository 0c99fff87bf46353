#include "backend/services/transcoder/input/input_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/input_rules.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/services/transcoder/filters/filter_check.h"

namespace weir {

namespace {

/// Settings that every reader has.
constexpr auto common_reader_options = std::to_array<std::string_view>(
    {"analyzeduration", "err_detect", "fflags", "flags", "max_delay", "probesize", "protocol_whitelist", "rtbufsize",
     "strict", "threads", "use_wallclock_as_timestamps"});

/// Of inputs that have the same options: "http" for "https", too; empty for a file.
std::string get_family(const InputSource& source) {
  if (holds(device_input_formats, source.format)) return source.format;
  std::string scheme = get_network_scheme(source);
  if (scheme.ends_with('s')) scheme.pop_back();
  return scheme;
}

long long read_replays(const Settings& input) {
  if (!input.has("loop")) return 0;
  const Value& value = input.raw("loop");
  const bool number = value.is_number() || (value.is_string() && parse_float(value.get_ref<const std::string&>()));
  if (number) return *input.whole("loop", -1, 1'000'000'000);
  return input.flag("loop") ? -1 : 0;
}

std::string get_option_text(const Settings& options, const std::string& name) {
  const Value& value = options.raw(name);
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  return options.text(name);
}

/// "headers" is the one option with line ends: they separate the headers.
std::string get_headers(const Settings& options) {
  const Value& value = options.raw("headers");
  if (!value.is_string()) options.refuse_value("headers", "is not a text");
  std::string headers;
  for (char c : value.get_ref<const std::string&>()) {
    if (c == '\r') continue;
    if (c == '\n') {
      headers += "\r\n";
    } else if (has_control_characters({&c, 1})) {
      options.refuse("headers", "has control characters");
    } else {
      headers += c;
    }
  }
  if (!headers.ends_with("\r\n")) headers += "\r\n";
  return headers;
}

void read_options(const Settings& input, InputSource& source) {
  const Settings options = input.section("options");
  if (!input.has("options")) return;
  for (const auto& [name, value] : input.raw("options").items()) {
    if (!options.has(name)) continue;
    if (name == "headers") {
      source.options.emplace_back(name, get_headers(options));
    } else if (holds(input_reader_options, name)) {
      source.options.emplace_back(name, get_option_text(options, name));
    } else if (holds(input_adjustment_options, name)) {
      source.adjustment.emplace_back(name, get_option_text(options, name));
    } else {
      options.refuse(name, "not an allowed input option");
    }
  }
}

void append_options(std::vector<std::string>& arguments,
                    const std::vector<std::pair<std::string, std::string>>& options) {
  for (const auto& [name, value] : options) arguments.insert(arguments.end(), {"-" + name, value});
}

bool has_option(const InputSource& source, std::string_view name) {
  return std::ranges::any_of(source.options, [&](const auto& option) { return option.first == name; });
}

void check_address(const Settings& input, const InputSource& source) {
  try {
    get_input_address(source.url, source.format);
  } catch (const ValueError& failure) {
    input.refuse("url", failure.what());
  }
}

}  // namespace

InputSource read_input_source(const Settings& input) {
  InputSource source;
  source.url = input.text("url");
  if (source.url.empty()) input.refuse("url", "missing");
  // FFmpeg finds a format whatever its case.
  source.format = boost::to_lower_copy(input.word("format"), std::locale::classic());
  source.realtime = input.flag("re");
  source.replays = read_replays(input);
  source.probe_timeout = to_duration(input.number("probe_timeout", 0.1, 3600).value_or(Config::PROBE_TIMEOUT));
  read_options(input, source);
  check_address(input, source);
  if (source.format == "mpegts") expect_transport_stream(source);
  return source;
}

void drop_foreign_options(const Settings& first, InputSource& source) {
  InputSource other;
  other.url = first.text("url");
  other.format = first.text("format");
  if (get_family(source) == get_family(other)) return;
  std::erase_if(source.options, [](const auto& option) { return !holds(common_reader_options, option.first); });
}

std::string get_input_address(const std::string& url, const std::string& format) {
  if (has_control_characters(url)) throw ValueError("The URL of an input has control characters");
  if (format == "lavfi") {
    if (const std::string fault = find_filter_fault(url); !fault.empty()) throw ValueError("lavfi: " + fault);
  }
  if (holds(device_input_formats, format)) return url;
  const std::string_view trimmed = trim(url);
  const std::string scheme = get_url_scheme(trimmed);
  if (scheme.empty()) return trimmed.starts_with("file:") ? std::string(trimmed) : "file:" + url;
  if (!holds(input_protocols, scheme)) {
    throw ValueError(fmt::format("{}: \"{}\" is not an allowed input protocol", mask_passwords(url), scheme));
  }
  if (scheme == "file") return "file:" + std::string(trimmed.substr(scheme.size() + 3));
  return scheme + std::string(trimmed.substr(scheme.size()));
}

std::string get_network_scheme(const InputSource& source) {
  if (holds(device_input_formats, source.format)) return {};
  const std::string scheme = get_url_scheme(trim(source.url));
  return scheme == "file" ? "" : scheme;
}

std::vector<std::string> make_open_arguments(const InputSource& source) {
  std::vector<std::string> arguments;
  if (!source.format.empty()) arguments.insert(arguments.end(), {"-f", source.format});
  append_options(arguments, source.options);
  arguments.insert(arguments.end(), {"-i", get_input_address(source.url, source.format)});
  return arguments;
}

std::vector<std::string> make_probe_arguments(const InputSource& source) {
  std::vector<std::string> arguments = make_open_arguments(source);
  if (!has_option(source, "analyzeduration")) arguments.insert(arguments.begin(), {"-analyzeduration", "2000000"});
  return arguments;
}

std::vector<std::string> make_pace_arguments(const InputSource& source) {
  std::vector<std::string> arguments;
  if (source.realtime) arguments.emplace_back("-re");
  if (source.replays != 0) arguments.insert(arguments.end(), {"-stream_loop", std::to_string(source.replays)});
  append_options(arguments, source.adjustment);
  return arguments;
}

void expect_transport_stream(InputSource& source) {
  if (get_network_scheme(source).empty() || has_option(source, "scan_all_pmts")) return;
  source.options.emplace_back("scan_all_pmts", "-1");
}

bool has_own_pace(const InputSource& source) {
  if (source.realtime) return true;
  return source.format != "lavfi" && !get_input_address(source.url, source.format).starts_with("file:");
}

}  // namespace weir
