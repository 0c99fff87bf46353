#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

constexpr int check_period = 30;     // seconds
constexpr int longest_excess = 180;  // seconds

// A number is taken as it is and a text as the number it shows. A text that shows none means the default.
double speed_bound(const Value& bound, double fallback) {
  if (bound.is_boolean()) return bound.get<bool>() ? 1.0 : 0.0;
  if (bound.is_number()) return bound.get<double>();
  if (!bound.is_string()) throw TypeError(fmt::format("a speed has to be a number, not {}", to_text(bound)));
  return parse_float(bound.get_ref<const std::string&>()).value_or(fallback);
}

bool is_file(const Value& url) {
  if (!url.is_string()) throw TypeError(fmt::format("an input's url has to be text, not {}", to_text(url)));
  const auto& text = url.get_ref<const std::string&>();
  std::error_code ignored;
  return text.starts_with("file://") || std::filesystem::exists(text, ignored);
}

}  // namespace

// A band that cannot be read at all is a failure of the task, not one of the stream.
Async<> Stream::speed_monitor() {
  const double min_speed = speed_bound(conf->get_json_conf("min_speed"), Config::STREAM_SPEED_MIN);
  const double max_speed = speed_bound(conf->get_json_conf("max_speed"), Config::STREAM_SPEED_MAX);
  co_await guarded(watch_speed(min_speed, max_speed));
}

Async<> Stream::watch_speed(double min_speed, double max_speed) {
  if (is_file(conf->get_json_conf(fmt::format("input.{}.url", ffmpeg->input_index)))) co_return;
  for (int duration = 0; duration <= longest_excess;) {
    co_await sleep(std::chrono::seconds(check_period));
    const double speed = stats.speed.value;
    duration = min_speed < speed && speed < max_speed ? 0 : duration + check_period;
  }
  warning(fmt::format("Speed {}x is too fast or slow", to_text(StreamStats::to_value(stats.speed))));
  co_await restart();
}

}  // namespace weir
