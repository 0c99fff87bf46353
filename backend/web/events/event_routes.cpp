#include "backend/web/events/event_routes.h"

#include <fmt/core.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text.h"

namespace weir {

namespace {

// "1,2"
std::optional<std::vector<long long>> parse_streams(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::vector<std::string> parts;
  boost::split(parts, text, boost::is_any_of(","));
  std::vector<long long> ids;
  for (const std::string& part : parts) {
    const auto id = is_number(trim(part)) ? parse_integer(part) : std::nullopt;
    if (!id) throw HttpError(400, fmt::format("streams: \"{}\" is not a stream id", part));
    ids.push_back(*id);
  }
  std::ranges::sort(ids);
  return ids;
}

// What another server or a proxy gave is none of ours: the subscriber has to begin anew.
std::optional<std::uint64_t> parse_last_number(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto number = is_number(text) ? parse_integer(text) : std::nullopt;
  return number ? static_cast<std::uint64_t>(*number) : ~std::uint64_t{0} >> 1;
}

}  // namespace

EventRoutes::EventRoutes(const StreamManager& manager, FigureFeed feed)
    : hub_(std::make_shared<EventHub>(std::move(feed))) {
  hub_->start(manager);
}

void EventRoutes::add_to(Router& router) {
  router.add("GET", "/api/events", [this](const Request& r, const PathParameters&) { return immediate(subscribe(r)); });
}

Response EventRoutes::subscribe(const Request& request) {
  Response response;
  response.is_live = true;
  response.content_type = "text/event-stream; charset=utf-8";
  response.headers.emplace_back("Cache-Control", "no-store");
  response.headers.emplace_back("X-Accel-Buffering", "no");  // for proxies that collect answers
  response.live = hub_->subscribe({parse_streams(request.query("streams")), parse_last_number(request.last_event_id)});
  if (!response.live) throw HttpError(503, "Too many subscribers of events");
  return response;
}

void EventRoutes::add_metrics(MetricsText& text) const {
  using Type = MetricsText::Type;
  text.family("weir_event_subscribers", Type::gauge, "Subscribers of /api/events.")
      .add({}, std::uint64_t{hub_->subscribers()});
  text.family("weir_event_subscribers_lost_total", Type::counter, "Subscribers dropped because they did not read.")
      .add({}, hub_->lost_subscribers());
}

}  // namespace weir
