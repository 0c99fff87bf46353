#include "backend/base/document_secrets.h"

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <nlohmann/json.hpp>
#include <vector>

#include "backend/base/mask_passwords.h"
#include "backend/base/text_form.h"

namespace weir {

namespace {

// Shorter ones are words of other texts, too.
constexpr std::size_t min_searched_secret = 8;
constexpr std::size_t max_searched_secrets = 100;

bool is_shown_as_it_is(const Value& value) {
  return value.is_null() || value.is_boolean() || (value.is_string() && value.get_ref<const std::string&>().empty());
}

bool is_url_member(std::string_view name) { return name == "url"; }

void mask(Value& value, std::string_view name, bool secret) {
  secret = secret || is_secret_member(name);
  if (value.is_object()) {
    for (auto& [key, below] : value.get_ref<Value::object_t&>()) mask(below, key, secret);
  } else if (value.is_array()) {
    for (Value& below : value) mask(below, {}, secret);
  } else if (secret) {
    if (!is_shown_as_it_is(value)) value = masked_secret;
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    if (may_hold_passwords(text)) value = is_url_member(name) ? mask_url(text) : mask_passwords(text);
  }
}

void collect(const Value& value, std::string_view name, bool secret, std::vector<std::string>& found) {
  secret = secret || is_secret_member(name);
  if (value.is_object()) {
    for (const auto& [key, below] : value.get_ref<const Value::object_t&>()) collect(below, key, secret, found);
  } else if (value.is_array()) {
    for (const Value& below : value) collect(below, {}, secret, found);
  } else if (secret) {
    if (!is_shown_as_it_is(value)) found.push_back(to_text(value));
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    is_url_member(name) ? mask_url(text, &found) : mask_passwords(text, &found);
  }
}

// "Authorization: Bearer TOKEN": the token alone is one, too.
void split_words(std::vector<std::string>& secrets) {
  for (std::size_t i = 0, count = secrets.size(); i < count; ++i) {
    if (secrets[i].find(' ') == std::string::npos) continue;
    std::vector<std::string> words;
    boost::split(words, secrets[i], boost::is_space());
    secrets.insert(secrets.end(), words.begin(), words.end());
  }
}

}  // namespace

bool is_secret_member(std::string_view name) { return name != "key" && is_secret_name(name); }

void mask_secrets(Value& value, std::string_view name) { mask(value, name, false); }

bool holds_masked_secret(const Value& value, std::string_view name) {
  std::vector<std::string> found;
  collect(value, name, false, found);
  return std::ranges::find(found, masked_secret) != found.end();
}

std::string mask_secrets_of(const Value& document, std::string_view text) {
  std::string masked = mask_passwords(text);
  std::vector<std::string> secrets;
  collect(document, {}, false, secrets);
  split_words(secrets);
  std::erase_if(secrets, [](const std::string& secret) { return secret.size() < min_searched_secret; });
  // One may be a part of another.
  std::ranges::sort(secrets, std::ranges::greater(), &std::string::size);
  if (secrets.size() > max_searched_secrets) secrets.resize(max_searched_secrets);
  for (const std::string& secret : secrets) boost::replace_all(masked, secret, masked_secret);
  return masked;
}

}  // namespace weir
