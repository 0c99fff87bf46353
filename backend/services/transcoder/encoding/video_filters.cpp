#include "backend/services/transcoder/encoding/video_filters.h"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>
#include <vector>

#include "backend/base/members.h"
#include "backend/base/text.h"
#include "backend/services/transcoder/filters/filter_check.h"
#include "backend/services/transcoder/filters/filter_graph.h"

namespace weir {

namespace {

/// The four numbers of a logo's place, from "x=10:y=10:w=100:h=40" or "10:10:100:40".
Value split_place(const std::string& text) {
  static constexpr std::array<std::string_view, 4> names = {"x", "y", "w", "h"};
  Value place = Value::object();
  std::size_t begin = 0;
  for (std::size_t i = 0; begin <= text.size(); ++i) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    std::string part = text.substr(begin, end - begin);
    const std::size_t equals = part.find('=');
    if (equals == std::string::npos) {
      place[i < 4 ? std::string(names[i]) : part] = part;
    } else {
      place[std::string(trim(part.substr(0, equals)))] = part.substr(equals + 1);
    }
    begin = end + 1;
  }
  return place;
}

std::string make_delogo(const Settings& video) {
  if (!video.has("delogo") || !is_set(video.raw("delogo"))) return {};
  const Value& value = video.raw("delogo");
  const Value place_value = value.is_string() ? split_place(value.get<std::string>()) : value;
  const Settings place(place_value, video.name() + ".delogo");
  if (!place_value.is_object() || place_value.size() != 4) video.refuse_value("delogo", "is not x, y, w and h");
  std::string filter = "delogo=";
  for (const char* name : {"x", "y", "w", "h"}) {
    const auto number = place.whole(name, 0, 15'360);
    if (!number) place.refuse(name, "missing");
    filter += fmt::format("{}{}={}", filter.ends_with('=') ? "" : ":", name, *number);
  }
  return filter;
}

}  // namespace

std::string make_cleaning_filters(const Settings& video) {
  std::vector<std::string> filters;
  if (video.flag("deinterlace")) filters.emplace_back("yadif=deint=interlaced");
  filters.push_back(make_delogo(video));
  if (video.has("cvdelogo")) {
    const Settings logo = video.section("cvdelogo");
    if (const std::string bitmap = logo.text("filename"); !bitmap.empty()) {
      if (const std::string fault = find_file_fault(bitmap); !fault.empty()) logo.refuse("filename", fault);
      filters.push_back("removelogo=filename=" + escape_filter_value(bitmap));
    }
  }
  filters.push_back(read_filters(video));
  std::erase(filters, "");
  return fmt::format("{}", fmt::join(filters, ","));
}

std::string make_shape_filters(const VideoShape& shape) {
  std::string filters;
  if (shape.fps > 0) filters = fmt::format("fps={},", shape.fps);
  if (shape.width == 0 && shape.height == 0) {
    filters += "scale=trunc(iw/2)*2:trunc(ih/2)*2";
  } else {
    filters += fmt::format("scale={}:{}", shape.width == 0 ? -2 : shape.width, shape.height == 0 ? -2 : shape.height);
  }
  return shape.upload ? filters + ",format=nv12,hwupload" : filters;
}

}  // namespace weir
