#include "backend/web/events/figure_deltas.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/base/time_text.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

struct Shape {
  const char* name;
  double steps;  ///< of a unit: finer changes are not shown
};
constexpr std::array<Shape, std::tuple_size_v<EventFigures>> shapes{
    {{"speed", 100}, {"fps", 10}, {"bitrate", 1}, {"cpu", 10}, {"memory", 1}, {"viewers", 1}}};

constexpr std::string_view tail = "}}\n\n";

EventFrame begin_frame() {
  EventFrame frame;
  frame.text =
      fmt::format("event: figures\ndata: {{\"time\":\"{}\",\"streams\":{{", to_iso8601(Loop::current().clock().wall()));
  frame.head = frame.text.size();
  return frame;
}

void begin_part(EventFrame& frame, long long stream_id) {
  if (!frame.parts.empty()) frame.text += ',';
  frame.parts.push_back({stream_id, frame.text.size(), 0});
  fmt::format_to(std::back_inserter(frame.text), "\"{}\":", stream_id);
}

void end_part(EventFrame& frame) { frame.parts.back().size = frame.text.size() - frame.parts.back().begin; }

void append_figure(std::string& text, std::size_t index, std::optional<double> value) {
  if (text.back() != '{') text += ',';
  if (value) {
    fmt::format_to(std::back_inserter(text), "\"{}\":{}", shapes[index].name, *value);
  } else {
    fmt::format_to(std::back_inserter(text), "\"{}\":null", shapes[index].name);
  }
}

void append_status(std::string& text, const std::string& status) {
  text += "\"status\":";
  text += to_json(Value(status));
}

std::optional<double> to_shown(std::optional<double> value, double steps) {
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return std::round(*value * steps) / steps;
}

}  // namespace

Async<std::optional<EventFrame>> FigureDeltas::next(std::vector<std::shared_ptr<Stream>> streams,
                                                    const FigureFeed& feed) {
  constexpr std::size_t part = 64;
  ++round_;
  EventFrame frame = begin_frame();
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    append_change(frame, *streams[i], feed);
  }
  append_deleted(frame);
  std::optional<EventFrame> result;
  if (frame.parts.empty()) co_return result;
  frame.text += tail;
  result = std::move(frame);
  co_return result;
}

void FigureDeltas::append_change(EventFrame& frame, const Stream& stream, const FigureFeed& feed) {
  const auto [place, is_new] = shown_.try_emplace(stream.id);
  Shown& shown = place->second;
  shown.round = round_;
  std::string status = to_text(stream.get_status());
  EventFigures figures = feed.read(stream);
  for (std::size_t i = 0; i < figures.size(); ++i) figures[i] = to_shown(figures[i], shapes[i].steps);
  if (!is_new && status == shown.status && figures == shown.figures) return;
  begin_part(frame, stream.id);
  frame.text += '{';
  if (is_new || status != shown.status) append_status(frame.text, status);
  for (std::size_t i = 0; i < figures.size(); ++i)
    if (figures[i] != shown.figures[i]) append_figure(frame.text, i, figures[i]);
  frame.text += '}';
  end_part(frame);
  shown.status = std::move(status);
  shown.figures = figures;
}

// Their parts follow those of the others: the order is made good.
void FigureDeltas::append_deleted(EventFrame& frame) {
  const std::size_t kept = frame.parts.size();
  for (auto shown = shown_.begin(); shown != shown_.end();) {
    if (shown->second.round == round_) {
      ++shown;
      continue;
    }
    begin_part(frame, shown->first);
    frame.text += "null";
    end_part(frame);
    shown = shown_.erase(shown);
  }
  if (frame.parts.size() > kept) std::ranges::sort(frame.parts, {}, &EventFrame::Part::stream_id);
}

EventFrame FigureDeltas::snapshot() const {
  EventFrame frame = begin_frame();
  for (const auto& [id, shown] : shown_) {
    begin_part(frame, id);
    frame.text += '{';
    append_status(frame.text, shown.status);
    for (std::size_t i = 0; i < shown.figures.size(); ++i)
      if (shown.figures[i]) append_figure(frame.text, i, shown.figures[i]);
    frame.text += '}';
    end_part(frame);
  }
  frame.text += tail;
  return frame;
}

std::string narrow(const EventFrame& frame, const std::vector<long long>& stream_ids) {
  const std::string_view whole = frame.text;
  std::string text;
  for (const long long id : stream_ids) {
    const auto part = std::ranges::lower_bound(frame.parts, id, {}, &EventFrame::Part::stream_id);
    if (part == frame.parts.end() || part->stream_id != id) continue;
    text += text.empty() ? whole.substr(0, frame.head) : std::string_view(",");
    text += whole.substr(part->begin, part->size);
  }
  if (!text.empty()) text += tail;
  return text;
}

}  // namespace weir
