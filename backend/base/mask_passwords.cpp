#include "backend/base/mask_passwords.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace weir {

namespace {

constexpr std::string_view mask = "***";
constexpr std::string_view white_space = " \t\r\n";

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

// Every "scheme://user:password@" of a word: a URL may hold others, also right after its own scheme.
std::string mask_authorities(std::string_view url) {
  std::string masked;
  for (;;) {
    const std::size_t scheme = std::min(url.find("://"), url.size());
    masked += url.substr(0, scheme);
    if (scheme == url.size()) return masked;
    url.remove_prefix(scheme + 3);
    std::size_t end = std::min(url.find_first_of("/?#"), url.size());
    if (end > 0 && url.substr(end - 1).starts_with("://")) --end;
    masked.append("://").append(mask_authority(url.substr(0, end)));
    url.remove_prefix(end);
  }
}

// Every "?name=value" and "&name=value" whose name says that the value is secret.
std::string mask_fields(std::string_view url) {
  std::string masked;
  while (!url.empty()) {
    const std::size_t name = std::min(url.find_first_of("?&;"), url.size() - 1) + 1;
    masked += url.substr(0, name);
    url.remove_prefix(name);
    const std::size_t end = std::min(url.find_first_of("=?&;#"), url.size());
    if (end == url.size() || url[end] != '=' || !is_credential(url.substr(0, end))) continue;
    masked.append(url.substr(0, end + 1)).append(mask);
    url.remove_prefix(std::min(url.find_first_of("&;#", end), url.size()));
  }
  return masked;
}

// Every "[name=value:" and ":name=value]" of the options of one of several receivers, as FFmpeg shows them. A backslash
// quotes what would end the value.
std::string mask_options(std::string_view word) {
  std::string masked;
  std::size_t name = std::string_view::npos;
  for (std::size_t i = 0; i < word.size(); ++i) {
    masked += word[i];
    if (word[i] == '[' || word[i] == ':') name = i + 1;
    if (word[i] != '=' || name == std::string_view::npos || !is_credential(word.substr(name, i - name))) continue;
    masked += mask;
    while (i + 1 < word.size() && ((word[i + 1] != ':' && word[i + 1] != ']') || word[i] == '\\')) ++i;
  }
  return masked;
}

std::string mask_word(std::string_view word) {
  if (word.find("://") == std::string_view::npos) return std::string(word);
  const bool has_options = word.find("[f=") != std::string_view::npos;
  return mask_fields(mask_authorities(has_options ? mask_options(word) : std::string(word)));
}

}  // namespace

bool may_hold_passwords(std::string_view text) {
  // "user:password@host", "?token=…"
  return text.find_first_of("@=") != std::string_view::npos && text.find("://") != std::string_view::npos;
}

std::string mask_passwords(std::string_view text) {
  if (!may_hold_passwords(text)) return std::string(text);
  std::string masked;
  masked.reserve(text.size());
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(white_space), text.size());
    const std::string_view word = text.substr(0, end);
    masked += mask_word(word);
    const std::size_t next = std::min(text.find_first_not_of(white_space, end), text.size());
    masked += text.substr(end, next - end);
    text.remove_prefix(next);
  }
  return masked;
}

}  // namespace weir
