#pragma once

#include <map>
#include <memory>
#include <string>

#include "backend/collaborators/journal.h"
#include "backend/web/events/webhook_target.h"

namespace weir {

struct WebhookSettings {
  std::string file = {};           ///< where those of the API are kept; empty: in memory only
  std::string settings_file = {};  ///< a list of further ones, which the API can't change; empty: none
  bool private_addresses = false;  ///< see `HttpSender`
};

/// All webhooks: those of the settings ("settings-1" …) and those of the API ("1" …). Each entry of the journal is
/// handed to those that want it.
class Webhooks : public JournalReader {
 public:
  static constexpr std::size_t max_webhooks = 50;

  /// Reads the files. One of the API's that can't be read is set aside, with a line in the log; throws `ValueError` or
  /// `std::system_error` for one of the settings.
  explicit Webhooks(WebhookSettings settings);
  ~Webhooks() override;

  void read(const JournalEntry& entry) override;

  const std::map<std::string, std::shared_ptr<WebhookTarget>>& targets() const noexcept { return targets_; }
  /// Null when there is none.
  std::shared_ptr<WebhookTarget> find(const std::string& id) const;
  static bool is_from_settings(const std::string& id) { return id.starts_with("settings-"); }

  /// Those of the API by their ids.
  using Stored = std::map<std::string, Webhook>;
  Stored stored() const;

  // These throw `std::system_error` when the file can't be written, and change nothing then.
  Async<std::string> add(Webhook webhook);
  Async<> change(std::string id, Webhook webhook);
  Async<> remove(std::string id);
  /// All of them at once. What is written is not durable yet.
  void replace(const Stored& webhooks);
  /// Where those of the API are kept; empty: in memory only.
  const std::string& file() const noexcept { return settings_.file; }

  /// What a test delivery sends.
  static WebhookTarget::Delivery make_test();

 private:
  void load_settings();
  void load_stored();
  void put(const std::string& id, Webhook webhook);
  Async<> save(Stored webhooks) const;
  void write(const Stored& webhooks) const;

  WebhookSettings settings_;
  HttpSender sender_;
  std::map<std::string, std::shared_ptr<WebhookTarget>> targets_;
  long long next_id_ = 1;
};

}  // namespace weir
