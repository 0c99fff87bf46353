#include "backend/web/server_routes.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/web/masked_value.h"
#include "backend/web/schema/form_check.h"

namespace weir {

namespace {

constexpr std::string_view compiler = __VERSION__;
#ifdef NDEBUG
constexpr std::string_view build_type = "release";
#else
constexpr std::string_view build_type = "debug";
#endif

// An input that a document may have, and no other file. Returns it as its readers take it.
Value check_input(Value input) {
  if (!is_set(member(input, "url"))) throw FormError({{"url", "missing"}});
  restore_secrets(input, JsonConf());
  Value document{{"input", {{"0", std::move(input)}}}};
  FormReport report;
  check_stream_members(document, TouchedKeys(Value{{"input", nullptr}}), report);
  constexpr std::string_view place = "input.0.";
  for (Finding& finding : report.findings)
    if (finding.key.starts_with(place)) finding.key.erase(0, place.size());
  if (!report.findings.empty()) throw FormError(std::move(report.findings));
  return std::move(document["input"]["0"]);
}

}  // namespace

void ServerRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const RouteRules open{.role = Role::nobody};
  router.add("GET", "/healthz", [](const Request&, Parameters) { return immediate(ok_response()); }, open);
  router.add("GET", "/readyz", [this](const Request& r, Parameters) { return readiness(r.identity.role); }, open);
  router.add("GET", "/api/version", [this](const Request&, Parameters) { return version(); });
  router.add("GET", "/api/encoders", [this](const Request&, Parameters) { return encoders(); });
  router.add("GET", "/api/probe",
             [this](const Request& r, Parameters) { return probe({{"url", std::string(trim(r.query("url")))}}); },
             {.role = Role::operator_, .starts_something = true});
  router.add("POST", "/api/probe", [this](const Request& r, Parameters) { return probe(read_form(r)); });
}

// Strangers don't learn where the data lies.
Async<Response> ServerRoutes::readiness(Role role) {
  if (!ready_) co_return error_response(503, "The streams are not loaded");
  const std::string fault = co_await data_.find_fault(Config::STREAM_DIRECTORY);
  if (!fault.empty())
    co_return error_response(503, "The data directory can't be written" + (role < Role::viewer ? "" : ": " + fault));
  co_return ok_response();
}

Async<Response> ServerRoutes::version() {
  const std::string ffmpeg = co_await ffmpeg_.get();
  co_return json_response({{"version", Config::VERSION},
                           {"ffmpeg", ffmpeg.empty() ? Value() : Value(ffmpeg)},
                           {"build", fmt::format("{}, {}", compiler, build_type)}});
}

Async<Response> ServerRoutes::encoders() {
  Value list = Value::array();
  for (const FfmpegEncoder& encoder : co_await encoders_.get())
    list.push_back({{"name", encoder.name}, {"media", encoder.media}, {"description", encoder.description}});
  co_return json_response(list);
}

Async<Response> ServerRoutes::probe(Value input) {
  input = check_input(std::move(input));
  // Each probe is a process.
  const auto permit = co_await probes_.acquire();
  try {
    Value found = co_await probe_(std::move(input));
    mask_value(found);
    co_return json_response(found);
  } catch (const std::exception& failure) {
    throw HttpError(400, failure.what());
  }
}

}  // namespace weir
