#include "backend/web/history_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/time_text.h"
#include "backend/platform/loop.h"
#include "backend/web/journal_json.h"
#include "backend/web/timeline.h"

namespace weir {

namespace {

constexpr long long max_limit = 1000;
constexpr long long max_hours = 168;
constexpr std::size_t max_timeline_rows = 5000;

// Nothing when the parameter is absent.
std::optional<long long> read_number(const Request& request, std::string_view name, long long min, long long max) {
  const std::string_view text = request.query(name);
  if (text.empty()) return std::nullopt;
  const std::optional<long long> number = parse_integer(text);
  if (!number || *number < min || *number > max)
    throw HttpError(400, fmt::format("{}: \"{}\" is not a number from {} to {}", name, text, min, max));
  return number;
}

std::optional<std::uint64_t> read_cursor(const Request& request, std::string_view name) {
  const auto number = read_number(request, name, 0, std::numeric_limits<long long>::max() - 1);
  if (!number) return std::nullopt;
  return static_cast<std::uint64_t>(*number);
}

// "ended,failed"
template <class Parse>
auto read_words(const Request& request, std::string_view name, Parse parse) {
  std::vector<typename decltype(parse(""))::value_type> words;
  const std::string_view text = request.query(name);
  if (text.empty()) return words;
  std::vector<std::string> parts;
  boost::split(parts, text, boost::is_any_of(","));
  for (const std::string& part : parts) {
    const auto word = parse(trim(part));
    if (!word) throw HttpError(400, fmt::format("{}: \"{}\" is not a {} of entries", name, part, name));
    words.push_back(*word);
  }
  return words;
}

Value to_value(const HistoryEntry& row) {
  Value value = to_value(row.entry);
  if (row.count > 1) {
    value["count"] = row.count;
    value["first"] = to_iso8601(row.first);
  }
  return value;
}

void append_counts(std::string& json, const CauseCounts& counts) {
  const char* separator = "{";
  for (int i = 0; i < cause_count; ++i) {
    const std::uint32_t count = counts[static_cast<std::size_t>(i)];
    if (count == 0) continue;
    json += fmt::format("{}\"{}\":{}", separator, to_word(static_cast<Cause>(i)), count);
    separator = ",";
  }
  json += *separator == '{' ? "{}" : "}";
}

}  // namespace

HistoryQuery read_history_query(const Request& request) {
  HistoryQuery query;
  query.before = read_cursor(request, "before");
  query.after = read_cursor(request, "after");
  query.kinds = read_words(request, "kind", parse_journal_kind);
  query.causes = read_words(request, "cause", parse_cause);
  query.limit = static_cast<std::size_t>(read_number(request, "limit", 1, max_limit).value_or(100));
  return query;
}

void HistoryRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  // What waits gets values: the request is read before.
  router.add("GET", "/api/history", [this](const Request& r, Parameters) {
    HistoryQuery query = read_history_query(r);
    query.stream_id = read_number(r, "stream", 0, std::numeric_limits<long long>::max());
    return list(std::move(query));
  });
  router.add("GET", "/api/streams/{id}/history", [this](const Request& r, Parameters p) {
    HistoryQuery query = read_history_query(r);
    query.stream_id = find(p[0]);
    query.since_added = true;
    return list(std::move(query));
  });
  router.add("GET", "/api/streams/{id}/timeline", [this](const Request& r, Parameters p) {
    const std::chrono::hours length(read_number(r, "hours", 1, max_hours).value_or(24));
    return show_timeline({.stream_id = find(p[0]), .since_added = true, .kinds = timeline_kinds()}, length);
  });
}

long long HistoryRoutes::find(const std::string& id) const {
  const std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  return stream->id;
}

Async<std::vector<HistoryEntry>> HistoryRoutes::ask(HistoryQuery query) {
  try {
    std::vector<HistoryEntry> rows = co_await history_.find(std::move(query));
    co_return rows;
  } catch (const HistoryUnavailable& failure) {
    throw HttpError(503, failure.what());
  }
}

Async<Response> HistoryRoutes::list(HistoryQuery query) {
  constexpr std::size_t part = 100;
  const std::vector<HistoryEntry> rows = co_await ask(std::move(query));
  Value list = Value::array();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (i % part == part - 1) co_await yield_to_others();
    list.push_back(to_value(rows[i]));
  }
  co_return json_response(list);
}

// Of a stream with too many rows the latest are shown.
Async<Response> HistoryRoutes::show_timeline(HistoryQuery query, std::chrono::hours length) {
  const WallTime to = Loop::current().clock().wall();
  query.since = to - length;
  query.limit = max_timeline_rows;
  std::vector<HistoryEntry> rows = co_await ask(query);
  WallTime from = *query.since;
  if (rows.size() == max_timeline_rows) from = std::max(from, rows.back().first);
  query.since.reset();
  query.limit = 1;
  if (!rows.empty()) query.before = rows.back().entry.number;
  const std::vector<HistoryEntry> earlier = co_await ask(query);
  std::ranges::reverse(rows);
  std::optional<HistoryEntry> before;
  if (!earlier.empty()) before = earlier.front();
  co_return json_response(make_timeline(rows, before, from, to));
}

void HistoryRoutes::append_summary(std::string& json, const Stream& stream) const {
  const HistorySummary summary = history_.summarize(stream.id);
  json += R"({"restarts":{"hour":)";
  append_counts(json, summary.restarts_last_hour);
  json += R"(,"day":)";
  append_counts(json, summary.restarts_last_day);
  json += R"(},"on_air_percent":)";
  json += summary.on_air_percent ? fmt::format("{:.2f}", *summary.on_air_percent) : "null";
  json += '}';
}

}  // namespace weir
