#include <fmt/core.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

constexpr int check_period = 30;  // seconds
constexpr int max_excess = 180;   // seconds

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

Async<> watch_speed(Stream& stream, double min_speed, double max_speed) {
  if (is_file(stream.conf->get_json_conf(fmt::format("input.{}.url", stream.ffmpeg->input_index)))) {
    stream.debug("Speed is not watched: the input is a file");
    co_return;
  }
  stream.findings.speed_band = SpeedBand{min_speed, max_speed};
  for (int duration = 0; duration <= max_excess;) {
    co_await sleep(std::chrono::seconds(check_period));
    const double speed = stream.stats.speed.value;
    duration = min_speed < speed && speed < max_speed ? 0 : duration + check_period;
  }
  Reason reason{
      .cause = Cause::speed,
      .text = fmt::format("Speed {}x is too fast or slow", to_text(StreamStats::to_value(stream.stats.speed)))};
  stream.warning(reason.text);
  co_await stream.restart(0, std::move(reason));
}

}  // namespace

Async<> speed_monitor(Stream& stream) {
  const double min_speed = speed_bound(stream.conf->get_json_conf("min_speed"), Config::STREAM_SPEED_MIN);
  const double max_speed = speed_bound(stream.conf->get_json_conf("max_speed"), Config::STREAM_SPEED_MAX);
  return watch_speed(stream, min_speed, max_speed);
}

}  // namespace weir
