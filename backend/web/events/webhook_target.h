#pragma once

#include <deque>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "backend/base/value.h"
#include "backend/platform/clock.h"
#include "backend/platform/task.h"
#include "backend/platform/wait_queue.h"
#include "backend/web/events/http_sender.h"
#include "backend/web/events/webhook.h"

namespace weir {

/// How long to wait after the delivery failed that many times in a row, from 1 on: 2, 4, 8 … s, at most ten minutes.
std::chrono::seconds retry_pause(int failures);

/// What becomes of a delivery after an answer.
enum class Verdict { delivered, retry, give_up };
Verdict judge(const HttpSender::Answer& answer);

/// One webhook with what waits for its receiver: entries are sent one at a time and in order. A delivery that fails for
/// an hour is given up. Shared by the registry and the task that delivers.
class WebhookTarget {
 public:
  static constexpr std::size_t max_waiting = 1000;

  struct Delivery {
    std::string kind;
    std::shared_ptr<const std::string> body;
  };

  struct Figures {
    std::uint64_t delivered = 0;
    std::uint64_t given_up = 0;
    std::uint64_t dropped = 0;  ///< the oldest, as too many were waiting
  };

  /// Begins to deliver. The sender outlives the target's tasks.
  static std::shared_ptr<WebhookTarget> make(std::string name, Webhook webhook, HttpSender& sender);
  ~WebhookTarget() = default;
  WebhookTarget(const WebhookTarget&) = delete;
  WebhookTarget& operator=(const WebhookTarget&) = delete;

  /// Drops what waits.
  void end() { task_.kill(); }

  void push(Delivery delivery);
  /// Sends without waiting for what else is to be sent.
  Async<HttpSender::Answer> send(Delivery delivery) const;

  const Webhook& webhook() const noexcept { return webhook_; }
  /// From now on; what waits is sent by it, too.
  void change(Webhook webhook) { webhook_ = std::move(webhook); }
  const Figures& figures() const noexcept { return figures_; }
  std::size_t waiting() const noexcept { return queue_.size() + (sending_ ? 1 : 0); }
  /// The latest attempt: "time", and "status" or "error"; null before the first.
  const Value& latest() const noexcept { return latest_; }

 private:
  WebhookTarget(std::string name, Webhook webhook, HttpSender& sender);
  static Async<> deliver_all(std::shared_ptr<WebhookTarget> self);
  Async<> deliver(Delivery delivery);
  void note(const HttpSender::Answer& answer, Verdict verdict);

  const std::string name_;
  Webhook webhook_;
  HttpSender& sender_;
  std::deque<Delivery> queue_;
  bool sending_ = false;
  bool failing_ = false;  ///< said in the log
  Figures figures_;
  Value latest_;
  WaitQueue news_;
  Task task_;
};

}  // namespace weir
