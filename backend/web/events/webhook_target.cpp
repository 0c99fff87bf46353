#include "backend/web/events/webhook_target.h"

#include <fmt/core.h>

#include <algorithm>

#include "backend/base/log.h"
#include "backend/base/time_text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds max_pause = 10min;
constexpr auto patience = 1h;

}  // namespace

std::chrono::seconds retry_pause(int failures) {
  constexpr int max_doublings = 10;
  return std::min(max_pause, std::chrono::seconds(1LL << std::clamp(failures, 1, max_doublings)));
}

Verdict judge(const HttpSender::Answer& answer) {
  const int status = answer.status;
  if (status >= 200 && status < 300) return Verdict::delivered;
  const bool is_refusal = status >= 400 && status < 500 && status != 408 && status != 429;
  return is_refusal || answer.refused ? Verdict::give_up : Verdict::retry;
}

WebhookTarget::WebhookTarget(std::string name, Webhook webhook, HttpSender& sender)
    : name_(std::move(name)), webhook_(std::move(webhook)), sender_(sender) {}

std::shared_ptr<WebhookTarget> WebhookTarget::make(std::string name, Webhook webhook, HttpSender& sender) {
  const std::shared_ptr<WebhookTarget> target(new WebhookTarget(std::move(name), std::move(webhook), sender));
  target->task_ = spawn("webhook " + target->name_, deliver_all(target));
  return target;
}

void WebhookTarget::push(Delivery delivery) {
  queue_.push_back(std::move(delivery));
  if (waiting() > max_waiting) {
    queue_.pop_front();
    ++figures_.dropped;
  }
  news_.wake_all();
}

Async<> WebhookTarget::deliver_all(std::shared_ptr<WebhookTarget> self) {
  for (;;) {
    while (self->queue_.empty()) co_await self->news_.wait();
    Delivery delivery = std::move(self->queue_.front());
    self->queue_.pop_front();
    self->sending_ = true;
    co_await self->deliver(std::move(delivery));
    self->sending_ = false;
  }
}

// Until it is delivered or given up.
Async<> WebhookTarget::deliver(Delivery delivery) {
  const TimePoint begin = now();
  for (int failures = 1;; ++failures) {
    const HttpSender::Answer answer = co_await send(delivery);
    Verdict verdict = judge(answer);
    const auto pause = retry_pause(failures);
    if (verdict == Verdict::retry && now() + pause - begin > patience) verdict = Verdict::give_up;
    note(answer, verdict);
    if (verdict != Verdict::retry) co_return;
    co_await sleep(pause);
  }
}

Async<HttpSender::Answer> WebhookTarget::send(Delivery delivery) const {
  const std::string timestamp = std::to_string(wall_seconds());
  std::vector<std::string> headers{"User-Agent: weir/" + Config::VERSION, "X-Weir-Event: " + delivery.kind,
                                   "X-Weir-Timestamp: " + timestamp};
  if (!webhook_.secret.empty())
    headers.push_back("X-Weir-Signature: " + sign(webhook_.secret, timestamp, *delivery.body));
  HttpSender::Answer answer = co_await sender_.post(webhook_.url, std::move(headers), delivery.body);
  co_return answer;
}

// Of an outage the log has its begin, what is given up, and its end.
void WebhookTarget::note(const HttpSender::Answer& answer, Verdict verdict) {
  latest_ = {{"time", to_iso8601(Loop::current().clock().wall())}};
  if (answer.status != 0) {
    latest_["status"] = answer.status;
  } else {
    latest_["error"] = mask_passwords(answer.error);
  }
  const std::string outcome = answer.status != 0 ? fmt::format("status {}", answer.status) : answer.error;
  if (verdict == Verdict::delivered) {
    ++figures_.delivered;
    if (std::exchange(failing_, false)) log(LogLevel::info, "Webhooks", fmt::format("webhook {} works again", name_));
    return;
  }
  if (verdict == Verdict::give_up) ++figures_.given_up;
  if (!std::exchange(failing_, true))
    log(LogLevel::warning, "Webhooks", fmt::format("webhook {} to {} fails: {}", name_, webhook_.url, outcome));
}

}  // namespace weir
