#include "backend/web/events/webhook.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "backend/base/document_secrets.h"
#include "backend/base/log.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/web/events/curl_library.h"

namespace weir {

namespace {

constexpr std::size_t max_url_bytes = 2048;
constexpr std::size_t max_secret_bytes = 256;

std::string read_text(const Value& value, std::string_view name, std::size_t limit) {
  if (!value.is_string()) throw ValueError(fmt::format("{}: {} is not a text", name, to_text(value)));
  std::string text = value.get<std::string>();
  if (text.size() > limit) throw ValueError(fmt::format("{}: longer than {} bytes", name, limit));
  return text;
}

std::string read_url(const Value& value) {
  std::string url = read_text(value, "url", max_url_bytes);
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl().url(), curl().url_cleanup);
  const bool is_http = url.starts_with("http://") || url.starts_with("https://");
  if (!is_http || curl().url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK)
    throw ValueError(fmt::format("url: \"{}\" is not an http or https URL", mask_passwords(url)));
  return url;
}

template <class Parse>
auto read_words(const Value& list, std::string_view name, Parse parse) {
  std::vector<typename decltype(parse(""))::value_type> words;
  if (!list.is_array()) throw ValueError(fmt::format("{}: {} is not a list", name, to_text(list)));
  for (const Value& word : list) {
    const auto parsed = word.is_string() ? parse(word.get<std::string>()) : std::nullopt;
    if (!parsed) throw ValueError(fmt::format("{}: {} is not one of them", name, to_text(word)));
    words.push_back(*parsed);
  }
  return words;
}

template <class Words>
Value to_list(const Words& words) {
  Value list = Value::array();
  for (const auto word : words) list.push_back(to_word(word));
  return list;
}

}  // namespace

bool Webhook::wants(const JournalEntry& entry) const {
  const bool is_detail = entry.kind == JournalKind::status || entry.kind == JournalKind::launched;
  if (kinds.empty() ? is_detail : !std::ranges::count(kinds, entry.kind)) return false;
  return causes.empty() || (entry.cause && std::ranges::count(causes, *entry.cause));
}

Webhook read_webhook(const Value& form, Webhook webhook) {
  for (const auto& [name, value] : form.items()) {
    if (name == "url") {
      webhook.url = read_url(value);
    } else if (name == "kinds") {
      webhook.kinds = read_words(value, name, parse_journal_kind);
    } else if (name == "causes") {
      webhook.causes = read_words(value, name, parse_cause);
    } else if (name == "secret") {
      webhook.secret = read_text(value, name, max_secret_bytes);
    } else {
      throw ValueError(fmt::format("{}: not a member of a webhook (url, kinds, causes, secret)", name));
    }
  }
  if (webhook.url.empty()) throw ValueError("url: required");
  return webhook;
}

void restore_url(Value& form, const Webhook& webhook) {
  const auto url = form.find("url");
  if (url == form.end() || !holds_masked_secret(*url, "url")) return;
  if (*url != mask_passwords(webhook.url))
    throw ValueError("url: \"***\" stands for a secret that is not shown; send the secret, or the URL as it was shown");
  *url = webhook.url;
}

Value to_form(const Webhook& webhook, bool with_secret) {
  Value form = {{"url", with_secret ? webhook.url : mask_passwords(webhook.url)},
                {"kinds", to_list(webhook.kinds)},
                {"causes", to_list(webhook.causes)}};
  if (with_secret) {
    form["secret"] = webhook.secret;
  } else {
    form["signed"] = !webhook.secret.empty();
  }
  return form;
}

std::string sign(const std::string& secret, const std::string& timestamp, const std::string& body) {
  const std::string text = timestamp + "." + body;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  ::HMAC(::EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(), &size);
  std::string signature = "sha256=";
  for (unsigned int i = 0; i < size; ++i) signature += fmt::format("{:02x}", digest[i]);
  return signature;
}

}  // namespace weir
