#include "backend/web/events/metrics_routes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/own_process.h"
#include "backend/web/events/stream_metrics.h"

namespace weir {

namespace {

using Type = MetricsText::Type;

void add_process(MetricsText& text, WallTime start) {
  const OwnProcess own = read_own_process();
  const auto gauge = [&](const char* name, const char* help, double value) {
    text.family(name, Type::gauge, help).add({}, value);
  };
  text.family("process_cpu_seconds_total", Type::counter, "CPU time of the server, without its transcoders.")
      .add({}, own.cpu_seconds);
  gauge("process_resident_memory_bytes", "Resident memory of the server.", static_cast<double>(own.resident_bytes));
  gauge("process_open_fds", "Open descriptors of the server.", static_cast<double>(own.open_descriptors));
  gauge("process_max_fds", "Descriptors that the server can have open.", static_cast<double>(own.max_descriptors));
  gauge("process_start_time_seconds", "When the server started, since the epoch.",
        std::chrono::duration<double>(start.time_since_epoch()).count());
}

void add_loop(MetricsText& text) {
  const TurnTimes& turns = Loop::current().turns();
  std::array<double, TurnTimes::bounds.size()> ends{};
  std::ranges::transform(TurnTimes::bounds, ends.begin(),
                         [](auto end) { return std::chrono::duration<double>(end).count(); });
  text.family("weir_loop_turn_seconds", Type::histogram, "For how long the server's loop was held at a stretch.")
      .add_histogram(ends, turns.counts(), std::chrono::duration<double>(turns.total()).count());
  text.family("weir_loop_lag_seconds", Type::gauge, "How late the latest timer was.")
      .add({}, std::chrono::duration<double>(turns.latest_lag()).count());
}

void add_http(MetricsText& text, const HttpFigures& http) {
  auto requests = text.family("weir_http_requests_total", Type::counter, "Requests answered, by status.");
  for (const auto& [status, count] : http.responses) requests.add(fmt::format("code=\"{}\"", status), count);
  text.family("weir_http_request_duration_seconds", Type::histogram,
              "Time in which the answer to a request was made; sending it is not part of it.")
      .add(http.durations);
  text.family("weir_http_connections", Type::gauge, "Open connections of clients.")
      .add({}, std::uint64_t{http.connections});
}

}  // namespace

void MetricsRoutes::add_to(Router& router) {
  router.add("GET", "/metrics", [this](const Request&, const PathParameters&) { return answer(); });
}

// One at a time: many scrapers at once wait for each other.
Async<Response> MetricsRoutes::answer() {
  const auto turn = co_await turns_.acquire();
  const auto text = std::make_shared<MetricsText>();
  co_await add_server(text);
  co_await add_stream_metrics(text, manager_.all_streams(), counters_, sampler_);
  Response response = text_response(text->join());
  response.content_type = "text/plain; version=0.0.4; charset=utf-8";
  co_return response;
}

Async<> MetricsRoutes::add_server(std::shared_ptr<MetricsText> text) {
  const std::string ffmpeg = co_await ffmpeg_.get();
  text->family("weir_build_info", Type::gauge, "1, with the versions of the server and of FFmpeg.")
      .add(metric_label("version", Config::VERSION) + "," + metric_label("ffmpeg", ffmpeg), std::uint64_t{1});
  add_process(*text, start_);
  add_loop(*text);
  add_http(*text, http_());
  for (const Source& source : sources_) source(*text);
  auto streams = text->family("weir_streams", Type::gauge, "Streams by their status.");
  const Value counts = manager_.get_all_stream_stats(nullptr);
  for (const auto& [status, count] : counts.items())
    if (status != "total") streams.add(metric_label("status", status), count.get<std::uint64_t>());
}

}  // namespace weir
