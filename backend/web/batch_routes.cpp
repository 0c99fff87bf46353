#include "backend/web/batch_routes.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"

namespace weir {

namespace {

constexpr double default_interval = 3;
constexpr double max_interval = 3600;

std::vector<Value> read_ids(const Value& form) {
  const Value& ids = member(form, "ids");
  if (!ids.is_array()) throw HttpError(400, "\"ids\" must be a list of stream ids");
  return {ids.begin(), ids.end()};
}

double read_interval(const Value& form) {
  const Value& interval = member(form, "interval");
  if (interval.is_null()) return default_interval;
  const double seconds = interval.is_number() ? interval.get<double>() : -1;
  if (seconds < 0 || seconds > max_interval)
    throw HttpError(400, fmt::format("\"interval\" must be a number of seconds (0 to {})", max_interval));
  return seconds;
}

std::optional<std::string> read_log_format(const Value& form) {
  const Value& format = member(form, "log_format");
  if (format.is_null()) return std::nullopt;
  if (!format.is_string() || !is_log_format(format.get_ref<const std::string&>()))
    throw HttpError(400, "\"log_format\" must be a text with no other fields than {id} and {label}");
  return format.get<std::string>();
}

}  // namespace

/// What a batch call asks for.
struct BatchRoutes::Batch {
  std::vector<Value> ids;
  double interval = default_interval;
  std::optional<std::string> log_format;
  std::string by;  ///< who asks
};

BatchRoutes::Batch BatchRoutes::read_batch(const Request& request) {
  const Value form = read_form(request);
  return {read_ids(form), read_interval(form), read_log_format(form), request.client_address};
}

bool is_log_format(std::string_view text) {
  while (!text.empty()) {
    std::size_t taken = 1;
    if (text.starts_with("{{") || text.starts_with("}}"))
      taken = 2;
    else if (text.starts_with("{id}"))
      taken = 4;
    else if (text.starts_with("{label}"))
      taken = 7;
    else if (text.front() == '{' || text.front() == '}')
      return false;
    text.remove_prefix(taken);
  }
  return true;
}

void BatchRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  router.add("POST", "/api/batch/start", [this](const Request& r, Parameters) { return start(read_batch(r)); });
  router.add("POST", "/api/batch/stop", [this](const Request& r, Parameters) { return stop(read_batch(r)); });
  router.add("POST", "/api/batch/restart", [this](const Request& r, Parameters) { return restart(read_batch(r)); });
  router.add("GET", "/api/stats", [this](const Request& r, Parameters) {
    const std::string_view gpu = r.query("gpu");
    return immediate(stats(gpu.empty() ? Value() : Value(std::string(gpu))));
  });
}

Async<Response> BatchRoutes::start(Batch batch) {
  co_await manager_.batch_start_streams(std::move(batch.ids), batch.interval, std::move(batch.by));
  co_return ok_response();
}

Async<Response> BatchRoutes::stop(Batch batch) {
  co_await manager_.batch_stop_streams(std::move(batch.ids), std::move(batch.by));
  co_return ok_response();
}

Async<Response> BatchRoutes::restart(Batch batch) {
  co_await manager_.batch_restart_streams(std::move(batch.ids), batch.interval, std::move(batch.log_format),
                                          std::move(batch.by));
  co_return ok_response();
}

Response BatchRoutes::stats(const Value& gpu) { return json_response(manager_.get_all_stream_stats(gpu)); }

}  // namespace weir
