#include "backend/web/batch_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

constexpr double default_interval = 3;
constexpr double max_interval = 3600;

// As in addresses: 2.9 is not stream 2.
bool is_id(const Value& id) {
  return id.is_number_integer() || (id.is_string() && is_number(id.get_ref<const std::string&>()));
}

std::vector<Value> read_ids(const Value& form) {
  constexpr std::size_t max_shown_bytes = 200;
  const Value& ids = member(form, "ids");
  if (!ids.is_array()) throw HttpError(400, "\"ids\" must be a list of stream ids");
  const auto wrong = std::ranges::find_if_not(ids, is_id);
  if (wrong != ids.end())
    throw HttpError(400, fmt::format("ids: {} is not a stream id (a whole number, or a text of digits)",
                                     to_json(*wrong).substr(0, max_shown_bytes)));
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

Value make_result(const Value& id, const std::string& error) {
  Value result{{"id", id}, {"ok", error.empty()}};
  if (!error.empty()) result["error"] = mask_passwords(error);
  return result;
}

Response answer(Value results) { return json_response({{"ok", true}, {"results", std::move(results)}}); }

std::string describe_status(const Stream& stream) { return "The stream is " + to_text(stream.get_status()); }

Value read_changes(const Request& request) {
  Value form = member(read_form(request), "form");
  if (!form.is_object()) throw HttpError(400, "\"form\" must be a mapping of the members to change");
  return form;
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
  return {read_ids(form), read_interval(form), read_log_format(form), request.by()};
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
  router.add("POST", "/api/batch/delete", [this](const Request& r, Parameters) { return remove(read_batch(r)); });
  router.add("POST", "/api/batch/patch",
             [this](const Request& r, Parameters) { return change(read_batch(r), read_changes(r)); });
  router.add("GET", "/api/stats", [this](const Request& r, Parameters) {
    const std::string_view gpu = r.query("gpu");
    return immediate(stats(gpu.empty() ? Value() : Value(std::string(gpu))));
  });
}

Value BatchRoutes::check_each(const std::vector<Value>& ids, const Check& check) {
  Value results = Value::array();
  for (const Value& id : ids) {
    const std::shared_ptr<Stream> stream = manager_.get_stream(id);
    results.push_back(make_result(id, stream ? check(*stream) : manager_.get_error_msg()));
  }
  return results;
}

Async<Response> BatchRoutes::start(Batch batch) {
  Value results = check_each(batch.ids, [](const Stream& stream) {
    return stream.get_status() == "stopped" ? std::string() : describe_status(stream);
  });
  co_await manager_.batch_start_streams(batch.ids, batch.interval, std::move(batch.by));
  // A start that was refused leaves no supervision task, and the reason.
  for (Value& result : results) {
    if (!result.at("ok").get<bool>()) continue;
    const std::shared_ptr<Stream> stream = manager_.get_stream(result.at("id"));
    if (stream && stream->thread.dead())
      result = make_result(result.at("id"), fmt::format("Not started: {}", stream->get_error_msg()));
  }
  co_return answer(std::move(results));
}

Async<Response> BatchRoutes::stop(Batch batch) {
  Value results = check_each(batch.ids, [](const Stream&) { return std::string(); });
  co_await manager_.batch_stop_streams(std::move(batch.ids), std::move(batch.by));
  co_return answer(std::move(results));
}

Async<Response> BatchRoutes::restart(Batch batch) {
  Value results = check_each(batch.ids, [](const Stream& stream) {
    return is_active(stream.get_status()) ? std::string() : describe_status(stream);
  });
  co_await manager_.batch_restart_streams(std::move(batch.ids), batch.interval, std::move(batch.log_format),
                                          std::move(batch.by));
  co_return answer(std::move(results));
}

Async<Response> BatchRoutes::remove(Batch batch) {
  Value results = Value::array();
  std::vector<long long> removed;
  for (const Value& id : batch.ids) {
    std::string error;
    try {
      removed.push_back(streams_.remove_stream(id, {}, batch.by));
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    results.push_back(make_result(id, error));
    co_await yield_to_others();
  }
  co_await StreamRoutes::clean_up(std::move(removed));
  co_return answer(std::move(results));
}

Async<Response> BatchRoutes::change(Batch batch, Value form) {
  Value results = Value::array();
  for (const Value& id : batch.ids) {
    Value changed;
    std::string error;
    try {
      changed = co_await streams_.change_stream(id, form, {}, batch.by);
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    Value result = make_result(id, error);
    if (changed.contains("pending")) result["pending"] = changed.at("pending");
    results.push_back(std::move(result));
  }
  co_return answer(std::move(results));
}

Response BatchRoutes::stats(const Value& gpu) { return json_response(manager_.get_all_stream_stats(gpu)); }

}  // namespace weir
