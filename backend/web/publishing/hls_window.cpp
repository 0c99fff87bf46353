#include "backend/web/publishing/hls_window.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

// With regular keyframes every segment but the first ones has this length.
double regular_duration(double segment_time, double seen) {
  if (seen <= 0) return segment_time;
  return std::max(1.0, std::ceil(segment_time / seen - 1e-6)) * seen;
}

int first_target_duration(const HlsCycle& cycle, const std::vector<HlsSegment>& segments) {
  if (cycle.has_fixed_segments) return static_cast<int>(std::ceil(cycle.segment_time));
  constexpr double room = 2;
  double longest = cycle.segment_time;
  for (const HlsSegment& segment : segments)
    longest = std::max(longest, regular_duration(cycle.segment_time, segment.duration));
  return static_cast<int>(std::ceil(longest + room));
}

Value format_rendition(const HlsWindow& window, std::size_t index) {
  const bool is_known = index < window.cycle.renditions.size();
  return {{"first_number", window.renditions[index].first_number},
          {"first_shown", window.renditions[index].first_shown},
          {"max_bitrate", is_known ? window.cycle.renditions[index].max_bitrate : 0}};
}

HlsWindow read_window(const Value& state) {
  HlsWindow window;
  window.cycle.segment_time = state.at("segment_time").get<double>();
  window.cycle.list_size = state.at("list_size").get<int>();
  window.cycle.has_fixed_segments = state.at("has_fixed_segments").get<bool>();
  window.cycle.independent_segments = state.at("independent_segments").get<bool>();
  window.discontinuity = state.at("discontinuity").get<long long>();
  window.target_duration = state.at("target_duration").get<int>();
  for (const Value& rendition : state.at("renditions")) {
    window.renditions.push_back({.kept = {},
                                 .first_number = rendition.at("first_number").get<long long>(),
                                 .first_shown = rendition.value("first_shown", 0LL)});
    window.cycle.renditions.push_back({rendition.at("max_bitrate").get<long long>()});
  }
  return window;
}

}  // namespace

bool HlsWindow::has_kept() const {
  return std::ranges::any_of(renditions, [](const Rendition& rendition) { return !rendition.kept.empty(); });
}

int choose_target_duration(int current, const HlsCycle& cycle, const std::vector<HlsSegment>& segments) {
  if (segments.empty()) return current;
  int target = current > 0 ? current : first_target_duration(cycle, segments);
  for (const HlsSegment& segment : segments) target = std::max(target, static_cast<int>(std::lround(segment.duration)));
  return target;
}

std::string format_window(const HlsWindow& window) {
  Value renditions = Value::array();
  for (std::size_t i = 0; i < window.renditions.size(); ++i) renditions.push_back(format_rendition(window, i));
  return to_json({{"segment_time", window.cycle.segment_time},
                  {"list_size", window.cycle.list_size},
                  {"has_fixed_segments", window.cycle.has_fixed_segments},
                  {"independent_segments", window.cycle.independent_segments},
                  {"discontinuity", window.discontinuity},
                  {"target_duration", window.target_duration},
                  {"renditions", std::move(renditions)}});
}

HlsWindow parse_window(const std::string& text) {
  try {
    return read_window(parse_json(text));
  } catch (const nlohmann::json::exception& failure) {
    throw ValueError(failure.what());
  }
}

}  // namespace weir
