#include "backend/web/events/webhooks.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>

#include "backend/base/bounded_json.h"
#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/loop.h"
#include "backend/web/journal_json.h"

namespace weir {

namespace {

// Only the server may read the secrets.
constexpr unsigned file_mode = 0600;

Value without(Value form, const char* name) {
  form.erase(name);
  return form;
}

}  // namespace

Webhooks::Webhooks(WebhookSettings settings) : settings_(std::move(settings)), sender_(settings_.private_addresses) {
  load_settings();
  load_stored();
}

Webhooks::~Webhooks() {
  for (const auto& [id, target] : targets_) target->end();
}

void Webhooks::load_settings() {
  if (settings_.settings_file.empty()) return;
  try {
    const Value list = parse_json(read_file(settings_.settings_file, max_document_bytes));
    if (!list.is_array()) throw ValueError("not a list of webhooks");
    for (std::size_t i = 0; i < list.size(); ++i) put(fmt::format("settings-{}", i + 1), read_webhook(list[i]));
  } catch (const ValueError& failure) {
    throw ValueError(fmt::format("The webhooks of {} can't be used: {}", settings_.settings_file, failure.what()));
  }
}

void Webhooks::load_stored() {
  std::error_code error;
  if (settings_.file.empty() || !std::filesystem::exists(settings_.file, error)) return;
  try {
    const Value document = parse_json(read_file(settings_.file, max_document_bytes));
    for (const Value& form : member(document, "webhooks")) {
      const std::string id = to_text(member(form, "id"));
      next_id_ = std::max(next_id_, parse_integer(id).value_or(0) + 1);
      put(id, read_webhook(without(form, "id")));
    }
  } catch (const std::exception& failure) {
    log(LogLevel::error, "Webhooks",
        fmt::format("{} is set aside as {}.broken: {}", settings_.file, settings_.file, failure.what()));
    std::filesystem::rename(settings_.file, settings_.file + ".broken", error);
  }
}

void Webhooks::put(const std::string& id, Webhook webhook) {
  std::shared_ptr<WebhookTarget>& target = targets_[id];
  if (target) {
    target->change(std::move(webhook));
  } else {
    target = WebhookTarget::make(id, std::move(webhook), sender_);
  }
}

void Webhooks::read(const JournalEntry& entry) {
  std::shared_ptr<const std::string> body;
  for (const auto& [id, target] : targets_) {
    if (!target->webhook().wants(entry)) continue;
    if (!body) body = std::make_shared<const std::string>(to_json(to_value(entry)));
    target->push({std::string(to_word(entry.kind)), body});
  }
}

WebhookTarget::Delivery Webhooks::make_test() {
  JournalEntry entry;
  entry.time = Loop::current().clock().wall();
  entry.text = "This is a test delivery";
  Value value = to_value(entry);
  value["kind"] = "test";
  return {"test", std::make_shared<const std::string>(to_json(value))};
}

std::shared_ptr<WebhookTarget> Webhooks::find(const std::string& id) const {
  const auto found = targets_.find(id);
  return found == targets_.end() ? nullptr : found->second;
}

Webhooks::Stored Webhooks::stored() const {
  Stored webhooks;
  for (const auto& [id, target] : targets_)
    if (!is_from_settings(id)) webhooks.emplace(id, target->webhook());
  return webhooks;
}

Async<> Webhooks::save(Stored webhooks) const {
  if (settings_.file.empty()) co_return;
  write(webhooks);
  co_await sync_file(settings_.file);
}

void Webhooks::write(const Stored& webhooks) const {
  if (settings_.file.empty()) return;
  Value list = Value::array();
  for (const auto& [id, webhook] : webhooks) {
    Value form = {{"id", id}};
    form.update(to_form(webhook, true));
    list.push_back(std::move(form));
  }
  const Value document = {{"webhooks", std::move(list)}};
  replace_file(settings_.file, to_json(document, true), file_mode);
}

Async<std::string> Webhooks::add(Webhook webhook) {
  const std::string id = std::to_string(next_id_++);
  Stored webhooks = stored();
  webhooks.emplace(id, webhook);
  co_await save(std::move(webhooks));
  put(id, std::move(webhook));
  co_return id;
}

Async<> Webhooks::change(std::string id, Webhook webhook) {
  Stored webhooks = stored();
  webhooks[id] = webhook;
  co_await save(std::move(webhooks));
  put(id, std::move(webhook));
}

Async<> Webhooks::remove(std::string id) {
  Stored webhooks = stored();
  webhooks.erase(id);
  co_await save(std::move(webhooks));
  targets_.at(id)->end();
  targets_.erase(id);
}

void Webhooks::replace(const Stored& webhooks) {
  if (webhooks.empty() && stored().empty()) return;
  write(webhooks);
  for (const auto& [id, webhook] : stored()) {
    if (webhooks.contains(id)) continue;
    targets_.at(id)->end();
    targets_.erase(id);
  }
  for (const auto& [id, webhook] : webhooks) {
    next_id_ = std::max(next_id_, parse_integer(id).value_or(0) + 1);
    put(id, webhook);
  }
}

}  // namespace weir
