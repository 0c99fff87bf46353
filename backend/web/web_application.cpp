#include "backend/web/web_application.h"

#include "backend/collaborators/listener_input.h"
#include "backend/web/access/authorised_body.h"
#include "backend/web/api/openapi_routes.h"
#include "backend/web/console/console_routes.h"
#include "backend/web/now/now_members.h"
#include "backend/web/schema/schema_routes.h"

namespace weir {

namespace {

FigureFeed figures_of(Sampler& sampler) {
  FigureFeed feed;
  feed.hold = [&sampler] { return std::make_shared<Sampler::FastSeat>(sampler); };
  feed.next = [&sampler] { return sampler.next(); };
  feed.read = [&sampler](const Stream& stream) {
    const FigureValues* sample = sampler.find(stream.id);
    return sample ? *sample : EventFigures();
  };
  return feed;
}

Response not_ready() {
  Response response = error_response(503, "The server is starting or ending");
  response.headers.emplace_back("Retry-After", "2");
  return response;
}

}  // namespace

WebApplication::WebApplication(ServerStreamManager& manager, ProfileRegistry& profiles, HlsWindows& windows,
                               History& history, InputProbe probe, WebSettings settings)
    : access_(std::move(settings.access)),
      access_routes_(access_, passwords_),
      users_(access_.users(), passwords_),
      sampler_(manager),
      streams_(manager, document_changes_),
      batches_(manager, streams_),
      profiles_(manager, profiles, streams_, document_changes_),
      history_(manager, history),
      now_(manager, sampler_, ffmpeg_version_),
      server_routes_(probe, ffmpeg_version_),
      metrics_(manager, sampler_, ffmpeg_version_, [this] { return server_.figures(); }),
      events_(manager, figures_of(sampler_)),
      webhooks_(std::move(settings.webhooks)),
      backups_({manager, profiles, streams_, webhooks_.webhooks()}, document_changes_, webhooks_.changes()),
      viewers_(std::make_shared<Viewers>(settings.viewers)),
      publishing_links_(std::move(settings.links_directory)),
      gate_(manager, publishing_links_),
      links_(manager, publishing_links_, document_changes_),
      hls_(manager, windows, viewers_,
           [probe = std::move(probe)](std::string file) { return probe({{"url", std::move(file)}}); }),
      thumbnails_(manager, windows),
      http_outputs_(manager, viewers_),
      server_([this](Request request) { return answer(std::move(request)); }, {.large_path = {"api", "import"}},
              std::move(settings.trusted_proxies)) {
  add_record_members(settings.viewers);
  access_routes_.add_to(router_);
  users_.add_to(router_);
  streams_.add_to(router_);
  thumbnails_.add_to(router_);
  batches_.add_to(router_);
  profiles_.add_to(router_);
  history_.add_to(router_);
  now_.add_to(router_);
  server_routes_.add_to(router_);
  add_schema_routes(router_);
  add_openapi_routes(router_);
  add_console_routes(router_);
  metrics_.add_to(router_);
  events_.add_to(router_);
  webhooks_.add_to(router_);
  backups_.add_to(router_);
  metrics_.add_source([this](MetricsText& text) { events_.add_metrics(text); });
  metrics_.add_source([this](MetricsText& text) { webhooks_.add_metrics(text); });
  links_.add_to(router_);
  gate_.add_to(router_);
  http_outputs_.add_to(router_);
  // Last: its pattern fits many addresses.
  hls_.add_to(router_);
}

void WebApplication::add_record_members(const ViewerLimits& viewers) {
  cycle_.on_waits([](const Stream& stream) { return is_listener_input(*stream.conf, stream.cycle.input); });
  streams_.add_record_member(cycle_.make());
  streams_.add_record_member(make_measured_member(sampler_));
  streams_.add_record_member(make_inputs_member());
  streams_.add_record_member(make_limits_member(viewers));
  streams_.add_record_member(make_timetable_member());
  streams_.add_record_member(make_tags_member());
  streams_.add_record_member(make_profile_member());
  streams_.add_record_member(
      {"history", [this](std::string& json, const Stream& stream) { history_.append_summary(json, stream); }});
  streams_.add_record_member(
      {"outputs", [](std::string& json, const Stream& stream) { json += stream.streaminfo->output_states(); }});
  streams_.add_record_member({"preview", [this](std::string& json, const Stream& stream) {
                                const bool shown = thumbnails_.has_picture(stream);
                                json += shown ? '"' + Thumbnails::address(stream) + '"' : "null";
                              }});
}

Async<Response> WebApplication::answer(Request request) {
  try {
    access_.examine(request);
  } catch (const HttpError& refusal) {
    return immediate(error_response(refusal.status(), refusal.what()));
  }
  if (!server_routes_.ready() && !asks_for_state(request)) return immediate(not_ready());
  if (auto refusal = gate_.refuse(request)) return immediate(std::move(*refusal));
  // What somebody was answered is nothing for strangers.
  const bool is_known = request.identity.role != Role::nobody;
  if (is_known && request.method == "GET") return answer_while_known(std::move(request));
  if (request.method != "POST" || request.idempotency_key.empty() || !is_known)
    return router_.route(std::move(request));
  return keys_->answer(std::move(request), [this](Request once) { return router_.route(std::move(once)); });
}

// An answer that goes on ends with the session or token.
Async<Response> WebApplication::answer_while_known(Request request) {
  const Request asked = request;
  Response response = co_await router_.route(std::move(request));
  if (response.live) {
    response.live = std::make_unique<AuthorisedBody>(std::move(response.live),
                                                     [this, asked] { return access_.still_knows(asked); });
  }
  co_return response;
}

}  // namespace weir
