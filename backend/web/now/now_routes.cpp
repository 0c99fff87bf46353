#include "backend/web/now/now_routes.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <boost/algorithm/string.hpp>
#include <nlohmann/json.hpp>

#include "backend/platform/loop.h"
#include "backend/web/now/json_text.h"

namespace weir {

namespace {

std::vector<Figure> all_figures() {
  std::vector<Figure> figures;
  for (std::size_t i = 0; i < figure_count; ++i) figures.push_back(static_cast<Figure>(i));
  return figures;
}

Figure read_figure(const std::string& name) {
  if (const auto figure = parse_figure(name)) return *figure;
  std::vector<std::string_view> known;
  for (const Figure figure : all_figures()) known.push_back(to_word(figure));
  throw HttpError(400, fmt::format("names: \"{}\" is not one of {}", name, fmt::join(known, ", ")));
}

// "speed,fps"; all when empty.
std::vector<Figure> parse_names(std::string_view text) {
  if (text.empty()) return all_figures();
  std::vector<std::string> names;
  boost::split(names, text, boost::is_any_of(","));
  std::vector<Figure> figures;
  for (const std::string& name : names) {
    const Figure figure = read_figure(boost::trim_copy(name));
    if (std::ranges::find(figures, figure) == figures.end()) figures.push_back(figure);
  }
  return figures;
}

WallTime time_of(long long step) { return WallTime(std::chrono::seconds(step * FigureSeries::step_seconds)); }

std::string format_values(const FigureSeries* series, Figure figure, long long newest) {
  std::string values = "[";
  for (long long step = newest - FigureSeries::steps + 1; step <= newest; ++step) {
    if (values.size() > 1) values += ',';
    append_number(values, series ? series->at(figure, step) : std::nullopt, 3);
  }
  return values + "]";
}

}  // namespace

void NowRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  router.add("GET", "/api/streams/{id}/series",
             [this](const Request& r, Parameters p) { return immediate(series(p[0], r.query("names"))); });
  router.add("GET", "/api/system", [this](const Request&, Parameters) { return system(); });
  router.add("DELETE", "/api/system/longest", [](const Request&, Parameters) {
    Loop::current().turns().reset_longest();
    return immediate(empty_response());
  });
}

Response NowRoutes::series(const Value& id, std::string_view names) {
  const std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  const std::vector<Figure> figures = parse_names(names);
  const FigureSeries* series = sampler_.find_series(stream->id);
  const long long newest = sampler_.newest_step();
  return json_text_response(make_json([&](JsonMapping& answer) {
    answer.add_time("from", time_of(newest - FigureSeries::steps + 1));
    answer.add_time("to", time_of(newest));
    answer.add_number("step", std::optional<long long>(FigureSeries::step_seconds));
    answer.add("series", make_json([&](JsonMapping& all) {
                 for (const Figure figure : figures) all.add(to_word(figure), format_values(series, figure, newest));
               }));
  }));
}

Async<Response> NowRoutes::system() {
  Value report = co_await system_.make();
  co_return json_response(report);
}

}  // namespace weir
