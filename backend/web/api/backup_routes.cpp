#include "backend/web/api/backup_routes.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/large_json.h"
#include "backend/base/text_form.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/helper_thread.h"
#include "backend/platform/loop.h"
#include "backend/web/masked_value.h"

namespace weir {

namespace {

void append_record(std::string& text, Value record, bool with_secrets) {
  if (!with_secrets) mask_value(record);
  if (!text.ends_with('[')) text += ",\n";
  text += to_json(record);
}

bool read_mode(const Request& request) {
  const std::string_view mode = request.query("mode");
  if (!mode.empty() && mode != "merge" && mode != "replace")
    throw HttpError(400, fmt::format("mode: \"{}\" is neither \"merge\" nor \"replace\"", mode));
  return mode == "replace";
}

// Reading many documents takes its time.
Async<std::shared_ptr<Value>> parse(std::shared_ptr<const std::string> body) {
  const auto parsed = std::make_shared<Value>();
  const auto failure = std::make_shared<std::string>();
  co_await on_helper_thread([parsed, failure, body] {
    try {
      *parsed = parse_large_json(*body);
    } catch (const ValueError& error) {
      *failure = error.what();
    }
  });
  if (!failure->empty()) throw HttpError(400, "Invalid JSON: " + *failure);
  if (!parsed->is_object()) throw HttpError(400, "Invalid import: not a JSON object");
  co_return parsed;
}

}  // namespace

void BackupRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const RouteRules rules{.role = Role::admin};
  router.add(
      "GET", "/api/export", [this](const Request& r, Parameters) { return write(r.query("secrets") == "1"); }, rules);
  router.add(
      "POST", "/api/import",
      [this](const Request& r, Parameters) {
        return read(std::make_shared<const std::string>(r.body), read_mode(r), r.query("dry_run") == "1", r.by());
      },
      rules);
}

Async<Response> BackupRoutes::write(bool with_secrets) {
  const auto guard = co_await changes_.acquire();
  const WallTime time = Loop::current().clock().wall();
  std::string text = fmt::format("{{\"format\": {}, \"version\": {}, \"time\": \"{}\",\n\"profiles\": [",
                                 Import::format, to_json(Config::VERSION), to_iso8601(time));
  for (Value record : targets_.profiles.list()) {
    record.erase("draft");
    append_record(text, std::move(record), with_secrets);
  }
  text += "],\n\"streams\": [";
  for (const std::shared_ptr<Stream>& stream : targets_.manager.all_streams()) {
    Value record = stream->conf->document();
    record.erase("status");
    append_record(text, std::move(record), with_secrets);
    co_await yield_to_others();
  }
  text += "],\n\"settings\": {\"webhooks\": [";
  for (const auto& [id, webhook] : targets_.webhooks.stored()) {
    Value record{{"id", id}};
    record.update(to_form(webhook, true));
    append_record(text, std::move(record), with_secrets);
  }
  Response response = json_text_response(std::move(text) + "]}}");
  response.headers.emplace_back("Content-Disposition", "attachment; filename=\"weir-export.json\"");
  co_return response;
}

Async<Response> BackupRoutes::read(std::shared_ptr<const std::string> body, bool replaces, bool is_trial,
                                   std::string by) {
  const std::shared_ptr<Value> content = co_await parse(std::move(body));
  const auto guard = co_await changes_.acquire();
  const auto webhooks_guard = co_await webhook_changes_.acquire();
  Import import(targets_, replaces);
  co_await import.check(content);
  if (!import.findings().empty()) throw FormError(import.findings());
  Value answer = import.describe();
  answer["dry_run"] = is_trial;
  if (!is_trial) co_await import.apply(std::move(by));
  co_return json_response(answer);
}

}  // namespace weir
