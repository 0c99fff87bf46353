#include "backend/web/events/webhook_routes.h"

#include <fmt/core.h>

#include "backend/base/log.h"

namespace weir {

namespace {

Value to_record(const std::string& id, const WebhookTarget& target) {
  Value record = {{"id", id}};
  record.update(to_form(target.webhook(), false));
  record["from_settings"] = Webhooks::is_from_settings(id);
  record["waiting"] = target.waiting();
  record["delivered"] = target.figures().delivered;
  record["given_up"] = target.figures().given_up;
  record["dropped"] = target.figures().dropped;
  record["latest"] = target.latest();
  return record;
}

void tell(JournalKind kind, const std::string& id, std::string by) {
  JournalEntry entry;
  entry.kind = kind;
  entry.by = std::move(by);
  entry.text = "webhook " + id;
  journal().record(std::move(entry));
}

}  // namespace

void WebhookRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const std::string one = "/api/webhooks/{id}";
  // Their addresses may be secrets, and they make the server send.
  const RouteRules admin{.role = Role::admin};
  router.add("GET", "/api/webhooks", [this](const Request&, Parameters) { return immediate(list()); }, admin);
  router.add(
      "POST", "/api/webhooks", [this](const Request& r, Parameters) { return add(read_form(r), r.by()); }, admin);
  router.add("GET", one, [this](const Request&, Parameters p) { return immediate(read(p[0])); }, admin);
  router.add(
      "PATCH", one, [this](const Request& r, Parameters p) { return change(p[0], read_form(r), r.by()); }, admin);
  router.add("DELETE", one, [this](const Request& r, Parameters p) { return remove(p[0], r.by()); }, admin);
  router.add("POST", one + "/test", [this](const Request&, Parameters p) { return test(p[0]); }, admin);
}

std::shared_ptr<WebhookTarget> WebhookRoutes::find(const std::string& id) const {
  std::shared_ptr<WebhookTarget> target = webhooks_.find(id);
  if (!target) throw HttpError(404, fmt::format("There is no webhook {}", id));
  return target;
}

std::shared_ptr<WebhookTarget> WebhookRoutes::find_own(const std::string& id) const {
  std::shared_ptr<WebhookTarget> target = find(id);
  if (Webhooks::is_from_settings(id)) throw HttpError(409, "This webhook is set by the file of --webhooks");
  return target;
}

Response WebhookRoutes::list() const {
  Value records = Value::array();
  for (const auto& [id, target] : webhooks_.targets()) records.push_back(to_record(id, *target));
  return json_response(records);
}

Response WebhookRoutes::read(const std::string& id) const { return json_response(to_record(id, *find(id))); }

Async<Response> WebhookRoutes::add(Value form, std::string by) {
  const auto guard = co_await changes_.acquire();
  if (webhooks_.targets().size() >= Webhooks::max_webhooks)
    throw HttpError(409, fmt::format("There are {} webhooks; delete one first", Webhooks::max_webhooks));
  Webhook webhook = as_bad_request([&] {
    restore_url(form, {});
    return read_webhook(form);
  });
  const std::string id = co_await webhooks_.add(std::move(webhook));
  tell(JournalKind::added, id, std::move(by));
  co_return json_response({{"id", id}}, 201);
}

Async<Response> WebhookRoutes::change(std::string id, Value form, std::string by) {
  const auto guard = co_await changes_.acquire();
  const std::shared_ptr<WebhookTarget> target = find_own(id);
  Webhook webhook = as_bad_request([&] {
    restore_url(form, target->webhook());
    return read_webhook(form, target->webhook());
  });
  co_await webhooks_.change(id, std::move(webhook));
  tell(JournalKind::changed, id, std::move(by));
  co_return ok_response();
}

Async<Response> WebhookRoutes::remove(std::string id, std::string by) {
  const auto guard = co_await changes_.acquire();
  find_own(id);
  co_await webhooks_.remove(id);
  tell(JournalKind::deleted, id, std::move(by));
  co_return empty_response();
}

// The receiver's status is the answer, whatever it is.
Async<Response> WebhookRoutes::test(std::string id) {
  const auto turn = co_await tests_.acquire();
  const std::shared_ptr<WebhookTarget> target = find(id);
  const HttpSender::Answer answer = co_await target->send(Webhooks::make_test());
  Value result = {{"delivered", judge(answer) == Verdict::delivered}};
  if (answer.status != 0) {
    result["status"] = answer.status;
  } else {
    result["error"] = mask_passwords(answer.error);
  }
  co_return json_response(result);
}

void WebhookRoutes::add_metrics(MetricsText& text) const {
  using Type = MetricsText::Type;
  auto waiting = text.family("weir_webhook_queue_entries", Type::gauge, "Entries that wait for the receiver.");
  auto deliveries = text.family("weir_webhook_deliveries_total", Type::counter, "Entries by what became of them.");
  for (const auto& [id, target] : webhooks_.targets()) {
    const std::string label = metric_label("webhook", id);
    waiting.add(label, std::uint64_t{target->waiting()});
    const WebhookTarget::Figures& figures = target->figures();
    for (const auto& [result, count] : {std::pair("delivered", figures.delivered),
                                        std::pair("given_up", figures.given_up), std::pair("dropped", figures.dropped)})
      deliveries.add(fmt::format("{},result=\"{}\"", label, result), count);
  }
}

}  // namespace weir
