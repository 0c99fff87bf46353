#include "backend/web/now/now_members.h"

#include <fmt/core.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "backend/base/mask_passwords.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/loop.h"
#include "backend/stream/runtime/timetable.h"
#include "backend/web/now/json_text.h"

namespace weir {

namespace {

/// What is made of a stream's document, kept until the document changes.
template <class T>
class KeptByDocument {
 public:
  T& get(const Stream& stream, const std::function<T(const Stream&)>& make) {
    Kept& kept = kept_[stream.id];
    if (!kept.value || kept.revision != stream.conf->revision()) kept = {stream.conf->revision(), make(stream)};
    return *kept.value;
  }
  void forget(long long stream_id) { kept_.erase(stream_id); }

 private:
  struct Kept {
    std::uint64_t revision = 0;
    std::optional<T> value;
  };
  std::unordered_map<long long, Kept> kept_;  ///< by stream id
};

/// A member that keeps something of each document.
template <class T>
RecordMember make_kept_member(std::string name, T (*make)(const Stream&),
                              void (*append)(std::string& json, const Stream&, T& kept)) {
  const auto kept = std::make_shared<KeptByDocument<T>>();
  return {std::move(name),
          [=](std::string& json, const Stream& stream) { append(json, stream, kept->get(stream, make)); },
          [=](long long id) { kept->forget(id); }};
}

void append_measured(std::string& json, const Measured& measured) {
  JsonMapping mapping(json);
  mapping.add_number("speed", measured.speed, 3);
  mapping.add_number("bitrate", measured.bitrate, 1);
  std::string renditions = "[";
  for (const auto& rate : measured.renditions) {
    if (renditions.size() > 1) renditions += ',';
    append_number(renditions, rate, 1);
  }
  mapping.add("renditions", renditions + "]");
  mapping.add_number("seconds_without_progress", measured.seconds_without_progress, 1);
}

// --- inputs ---

struct InputText {
  std::string url;   ///< as the document has it
  std::string json;  ///< masked
};
using InputTexts = std::vector<InputText>;

InputTexts read_inputs(const Stream& stream) {
  InputTexts texts;
  for (const NumberedMember& input : numbered_members(stream.conf->get_json_conf("input"))) {
    if (!input.value->is_object()) continue;
    std::string url = to_text(member(*input.value, "url"));
    std::string json = to_json(mask_passwords(url));
    texts.push_back({std::move(url), std::move(json)});
  }
  return texts;
}

std::string format_answer(const InputAnswer& answer) {
  return make_json([&](JsonMapping& mapping) {
    mapping.add_flag("answers", answer.answers);
    mapping.add_time("time", answer.time);
    mapping.add("reason", answer.reason.empty() ? "null" : to_json(answer.reason));
  });
}

// What is known of another address than the document's has no meaning.
std::string find_answer(const Stream& stream, int index, const std::string& url) {
  const auto known = stream.known_inputs.find(index);
  return known == stream.known_inputs.end() || known->second.url != url ? "null" : format_answer(known->second.answer);
}

void append_inputs(std::string& json, const Stream& stream, InputTexts& inputs) {
  json += '[';
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const int index = static_cast<int>(i);
    if (i > 0) json += ',';
    JsonMapping input(json);
    input.add("url", inputs[i].json);
    input.add_flag("in_use", stream.proc && stream.ffmpeg->input_index == index);
    input.add_flag("preferred", index == 0);
    input.add("probe", find_answer(stream, index, inputs[i].url));
  }
  json += ']';
}

// --- limits ---

std::string to_limit(std::size_t limit) { return limit == 0 ? "null" : std::to_string(limit); }

std::string format_viewer_limits(const ViewerLimits& limits) {
  return fmt::format(R"({{"total":{},"per_stream":{},"per_address":{}}})", to_limit(limits.total),
                     to_limit(limits.per_stream), to_limit(limits.per_address));
}

std::string format_band(const SpeedBand& band) {
  return make_json([&](JsonMapping& mapping) {
    mapping.add_number("min", band.min, 3);
    mapping.add_number("max", band.max, 3);
  });
}

void append_limits(std::string& json, const Findings& findings, const std::string& viewers) {
  JsonMapping limits(json);
  limits.add("speed", findings.speed_band ? format_band(*findings.speed_band) : "null");
  limits.add_number("memory_mib", findings.system_limit, 1);
  limits.add_number("gpu_memory_mib", findings.graphics_limit, 1);
  limits.add("viewers", viewers);
}

// --- timetable ---

struct NextTimes {
  Timetable restarting;
  Timetable switching;
  std::optional<WallTime> restart;
  std::optional<WallTime> change;
  std::optional<WallTime> found_at;
};

NextTimes read_timetables(const Stream& stream) {
  NextTimes times;
  times.restarting = read_timetable(*stream.conf, "input.restart");
  times.switching = read_timetable(*stream.conf, "input.switch");
  return times;
}

bool has_passed(const std::optional<WallTime>& time, WallTime now) { return time && *time <= now; }

// Searched again when one has passed, and when the clock was set back.
void append_timetable(std::string& json, const Stream&, NextTimes& next) {
  const WallTime wall = Loop::current().clock().wall();
  if (!next.found_at || wall < *next.found_at || has_passed(next.restart, wall) || has_passed(next.change, wall)) {
    next.restart = next_time(next.restarting, wall);
    next.change = next_time(next.switching, wall);
    next.found_at = wall;
  }
  JsonMapping timetable(json);
  timetable.add_time("restart", next.restart);
  timetable.add_time("switch", next.change);
}

std::string format_tags(const Stream& stream) {
  const Value& tags = stream.conf->get_json_conf("tags");
  return tags.is_array() ? to_json(tags) : "[]";
}

std::string format_profile(const Stream& stream) {
  const std::string digits = to_text(stream.conf->get_json_conf("profile"));
  const auto id = is_number(digits) ? parse_integer(digits) : std::nullopt;
  return id ? std::to_string(*id) : "null";
}

/// A member that depends on nothing but the document.
RecordMember make_document_member(std::string name, std::string (*format)(const Stream&)) {
  return make_kept_member<std::string>(std::move(name), format,
                                       [](std::string& json, const Stream&, std::string& kept) { json += kept; });
}

}  // namespace

RecordMember make_measured_member(const Sampler& sampler) {
  return {"measured",
          [&sampler](std::string& json, const Stream& stream) { append_measured(json, sampler.measure(stream)); }};
}

RecordMember make_inputs_member() { return make_kept_member<InputTexts>("inputs", read_inputs, append_inputs); }

RecordMember make_limits_member(const ViewerLimits& viewers) {
  return {"limits", [viewers = format_viewer_limits(viewers)](std::string& json, const Stream& stream) {
            append_limits(json, stream.findings, viewers);
          }};
}

RecordMember make_timetable_member() {
  return make_kept_member<NextTimes>("timetable", read_timetables, append_timetable);
}

RecordMember make_tags_member() { return make_document_member("tags", format_tags); }

RecordMember make_profile_member() { return make_document_member("profile", format_profile); }

}  // namespace weir
