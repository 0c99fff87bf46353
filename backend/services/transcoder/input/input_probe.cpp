#include "backend/services/transcoder/input/input_probe.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "backend/base/bounded_json.h"
#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/utils.h"
#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/services/transcoder/input/input_source.h"

namespace weir {

namespace {

/// What the probe puts before what made it fail.
constexpr std::array<std::string_view, 2> failure_marks{"[error] ", "[fatal] "};

constexpr const char* wanted_entries =
    "format=format_name,duration,bit_rate:stream=index,codec_type,codec_name,profile,level,width,height,avg_frame_rate,"
    "pix_fmt,sample_rate,channels,bit_rate:stream_tags=language";

Value make_error(std::string_view reason) { return Value{{"error", mask_passwords(reason)}}; }

/// Whole numbers beyond it are not exact.
constexpr double max_number = 1e15;

/// A number of the probe's answer, which prints many as texts; null when a source printed none that can be.
Value get_number(const Value& value) {
  std::optional<double> number;
  if (value.is_number()) number = value.get<double>();
  if (value.is_string()) number = parse_float(value.get_ref<const std::string&>());
  return number && std::abs(*number) <= max_number ? Value(*number) : Value();
}

Value get_whole(const Value& value, double factor = 1) {
  const Value number = get_number(value);
  return number.is_null() ? Value() : Value(std::llround(number.get<double>() * factor));
}

/// "30000/1001" as a number.
Value get_frame_rate(const Value& value) {
  if (!value.is_string()) return {};
  const std::string& text = value.get_ref<const std::string&>();
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return get_number(value);
  const auto dividend = parse_float(text.substr(0, slash));
  const auto divisor = parse_float(text.substr(slash + 1));
  if (!dividend || !divisor) return {};
  return get_number(std::round(*dividend / *divisor * 1000) / 1000);
}

Value describe_stream(const Value& stream) {
  Value description = Value::object();
  auto put = [&description](const char* name, Value value) {
    if (!value.is_null()) description[name] = std::move(value);
  };
  const bool video = member(stream, "codec_type") == "video";
  put("index", member(stream, "index"));
  put("type", member(stream, "codec_type"));
  put("codec", member(stream, "codec_name"));
  put("profile", member(stream, "profile"));
  if (video) put("level", member(stream, "level"));
  put("language", member(member(stream, "tags"), "language"));
  put("width", member(stream, "width"));
  put("height", member(stream, "height"));
  if (video) put("fps", get_frame_rate(member(stream, "avg_frame_rate")));
  put("pix_fmt", member(stream, "pix_fmt"));
  put("sample_rate", get_whole(member(stream, "sample_rate")));
  put("channels", member(stream, "channels"));
  put("bitrate", get_whole(member(stream, "bit_rate"), 0.001));
  return description;
}

Value describe(const Value& answer) {
  const Value& format = member(answer, "format");
  Value streams = Value::array();
  const Value& list = member(answer, "streams");
  if (list.is_array()) {
    for (const Value& stream : list) streams.push_back(describe_stream(stream));
  }
  if (streams.empty()) return make_error("no media streams found");
  return Value{{"format", member(format, "format_name")},
               {"duration", get_number(member(format, "duration"))},
               {"bitrate", get_whole(member(format, "bit_rate"), 0.001)},
               {"streams", std::move(streams)}};
}

/// The failure itself, which is the last error that the probe printed, without the address ahead of it.
std::string get_failure(std::string_view text, const std::string& address) {
  std::size_t begin = 0;
  for (std::string_view mark : failure_marks) {
    const std::size_t found = text.rfind(mark);
    if (found != std::string_view::npos) begin = std::max(begin, found + mark.size());
  }
  if (begin == 0) return {};
  text.remove_prefix(begin);
  std::string line(trim(text.substr(0, std::min<std::size_t>(text.find_first_of("\r\n"), 2000))));
  line = strip_console_codes(line);
  return line.starts_with(address + ": ") ? line.substr(address.size() + 2) : line;
}

Value read_answer(const CommandResult& result, const std::string& address, double timeout) {
  if (result.timed_out) return make_error(fmt::format("no answer within {} s", timeout));
  if (result.exit_status != 0) {
    const std::string line = get_failure(result.standard_error, address);
    return make_error(line.empty() ? fmt::format("the probe exited with {}", result.exit_status) : line);
  }
  try {
    return describe(parse_json(result.standard_output));
  } catch (const ValueError& failure) {
    return make_error(fmt::format("the probe's answer cannot be read: {}", failure.what()));
  }
}

}  // namespace

Async<Value> probe_input(std::vector<std::string> open_arguments, std::chrono::nanoseconds timeout,
                         std::shared_ptr<const OutputFile> log) {
  const std::string address = open_arguments.back();
  const double seconds = std::chrono::duration<double>(timeout).count();
  std::vector<std::string> command = {
      Config::FFPROBE, "-hide_banner", "-loglevel",     log ? "level+debug" : "level+error",
      "-of",           "json",         "-show_entries", wanted_entries};
  command.insert(command.end(), open_arguments.begin(), open_arguments.end());
  Value answer;
  try {
    const CommandResult result = co_await run_command(std::move(command), seconds, max_probe_log, std::move(log));
    answer = read_answer(result, address, seconds);
  } catch (const std::system_error& failure) {
    answer = make_error(fmt::format("{} cannot be run: {}", Config::FFPROBE, failure.code().message()));
  }
  co_return answer;
}

bool shows_data(std::string_view log) {
  return log.find(" probed with size=") != std::string_view::npos ||
         log.find("Before avformat_find_stream_info()") != std::string_view::npos;
}

Async<Value> probe_url(std::string url) {
  std::vector<std::string> arguments;
  std::string refusal;
  try {
    InputSource source;
    source.url = std::move(url);
    arguments = make_open_arguments(source);
  } catch (const ValueError& failure) {
    refusal = failure.what();
  }
  if (!refusal.empty()) co_return make_error(refusal);
  Value answer = co_await probe_input(std::move(arguments), to_duration(Config::PROBE_TIMEOUT));
  co_return answer;
}

Async<Value> probe_input_member(Value input) {
  std::vector<std::string> arguments;
  constexpr std::chrono::nanoseconds max_timeout = std::chrono::minutes(1);
  std::chrono::nanoseconds timeout{0};
  std::string refusal;
  try {
    const InputSource source = read_input_source(Settings(input, "input"));
    arguments = make_open_arguments(source);
    timeout = std::min(source.probe_timeout, max_timeout);
  } catch (const ValueError& failure) {
    refusal = failure.what();
  }
  if (!refusal.empty()) co_return make_error(refusal);
  Value answer = co_await probe_input(std::move(arguments), timeout);
  co_return answer;
}

}  // namespace weir
