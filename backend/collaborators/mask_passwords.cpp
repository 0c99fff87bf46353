#include "backend/collaborators/mask_passwords.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace weir {

namespace {

constexpr std::string_view mask = "***";
constexpr std::string_view end_of_url = " \t\r\n\"'<>|";

constexpr std::array<std::string_view, 14> credentials{"password",  "passwd",    "pass",      "pwd",  "passphrase",
                                                       "token",     "secret",    "key",       "auth", "apikey",
                                                       "signature", "streamkey", "pubpasswd", "sig"};

// "user:password@host" with the password hidden. A password may hold further "@" and ":".
std::string mask_authority(std::string_view authority) {
  const std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.find(':');
  if (at == std::string_view::npos || colon >= at) return std::string(authority);
  return std::string(authority.substr(0, colon + 1)).append(mask).append(authority.substr(at));
}

bool is_credential(std::string_view name) {
  std::string plain;
  for (const char c : name.substr(0, 32)) {
    if (c != '_' && c != '-') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return std::ranges::any_of(
      credentials, [&](std::string_view word) { return plain == word || (plain.ends_with(word) && word.size() > 4); });
}

// "name=value" with the value hidden when the name says that it is secret.
std::string mask_field(std::string_view field) {
  const std::size_t equals = field.find('=');
  if (equals == std::string_view::npos || !is_credential(field.substr(0, equals))) return std::string(field);
  return std::string(field.substr(0, equals + 1)).append(mask);
}

std::string mask_query(std::string_view query) {
  std::string masked;
  if (query.starts_with('?')) {
    masked = '?';
    query.remove_prefix(1);
  }
  for (;;) {
    const std::size_t end = std::min(query.find_first_of("&;"), query.size());
    masked += mask_field(query.substr(0, end));
    if (end == query.size()) return masked;
    masked += query[end];
    query.remove_prefix(end + 1);
  }
}

// What follows "scheme://".
std::string mask_url(std::string_view url) {
  const std::size_t authority_end = std::min(url.find_first_of("/?#"), url.size());
  const std::size_t query = std::min(url.find('?', authority_end), url.size());
  std::string masked = mask_authority(url.substr(0, authority_end));
  masked += url.substr(authority_end, query - authority_end);
  return masked += mask_query(url.substr(query));
}

}  // namespace

std::string mask_passwords(std::string_view text) {
  std::string masked;
  masked.reserve(text.size());
  for (;;) {
    const std::size_t scheme = text.find("://");
    if (scheme == std::string_view::npos) return masked.append(text);
    masked += text.substr(0, scheme + 3);
    text.remove_prefix(scheme + 3);
    const std::size_t end = std::min(text.find_first_of(end_of_url), text.size());
    masked += mask_url(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace weir
