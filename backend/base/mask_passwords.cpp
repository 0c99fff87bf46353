#include "backend/base/mask_passwords.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace weir {

namespace {

constexpr std::string_view mask = masked_secret;
constexpr std::string_view white_space = " \t\r\n";

constexpr std::array<std::string_view, 21> secret_names{
    "password", "passwd",   "pass",          "pwd",        "passphrase", "token",     "secret",
    "key",      "auth",     "apikey",        "signature",  "sig",        "streamkey", "pubpasswd",
    "playpath", "streamid", "authorization", "credential", "cookie",     "cookies",   "headers"};

/// Puts the mask in the place of each secret, and keeps the secrets for whoever asks.
class Masker {
 public:
  explicit Masker(std::vector<std::string>* found) : found_(found) {}

  std::string mask_text(std::string_view text);
  std::string mask_word(std::string_view word);

 private:
  std::string_view take(std::string_view secret);
  std::string mask_authority(std::string_view authority);
  std::string mask_authorities(std::string_view url);
  std::string mask_stream_key(std::string_view path);
  std::string mask_fields(std::string_view url);
  std::string mask_options(std::string_view word);

  std::vector<std::string>* found_;
};

std::string_view Masker::take(std::string_view secret) {
  if (found_) found_->emplace_back(secret);
  return mask;
}

// "user:password@host" with the password hidden. A password may hold further "@" and ":".
std::string Masker::mask_authority(std::string_view authority) {
  const std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.find(':');
  if (at == std::string_view::npos || colon >= at) return std::string(authority);
  const std::string_view hidden = take(authority.substr(colon + 1, at - colon - 1));
  return std::string(authority.substr(0, colon + 1)).append(hidden).append(authority.substr(at));
}

// rtmp, rtmps, rtmpte …; `before` is what stands before "://".
bool is_rtmp(std::string_view before) {
  constexpr std::size_t longest = 6;
  std::string scheme(before.substr(before.size() - std::min(before.size(), longest)));
  std::ranges::transform(scheme, scheme.begin(), [](unsigned char c) { return std::tolower(c); });
  return scheme.find("rtmp") != std::string::npos;
}

// "/app/stream-key": whoever knows the key can publish. An app and a key may have a query.
std::string Masker::mask_stream_key(std::string_view path) {
  constexpr std::string_view punctuation = "'\":,;.)]>";
  const std::size_t app_end = std::min(path.find_first_of("/?", 1), path.size());
  const std::size_t key_end = path.find_last_not_of(punctuation) + 1;
  if (app_end + 1 >= key_end) return std::string(path);
  const std::string_view hidden = take(path.substr(app_end + 1, key_end - app_end - 1));
  return std::string(path.substr(0, app_end + 1)).append(hidden).append(path.substr(key_end));
}

// Every "scheme://user:password@" of a word: a URL may hold others, also right after its own scheme.
std::string Masker::mask_authorities(std::string_view url) {
  std::string masked;
  for (;;) {
    const std::size_t scheme = std::min(url.find("://"), url.size());
    masked += url.substr(0, scheme);
    if (scheme == url.size()) return masked;
    const bool has_stream_key = is_rtmp(url.substr(0, scheme));
    url.remove_prefix(scheme + 3);
    std::size_t end = std::min(url.find_first_of("/?#"), url.size());
    if (end > 0 && url.substr(end - 1).starts_with("://")) --end;
    masked.append("://").append(mask_authority(url.substr(0, end)));
    url.remove_prefix(end);
    // To the end of the word: nothing says where a key ends.
    if (has_stream_key && url.starts_with('/')) return masked + mask_stream_key(url);
  }
}

// Every "?name=value" and "&name=value" whose name says that the value is secret. SRT knows no fragments: "#" does not
// end a value.
std::string Masker::mask_fields(std::string_view url) {
  std::string masked;
  while (!url.empty()) {
    const std::size_t name = std::min(url.find_first_of("?&;"), url.size() - 1) + 1;
    masked += url.substr(0, name);
    url.remove_prefix(name);
    const std::size_t end = std::min(url.find_first_of("=?&;#"), url.size());
    if (end == url.size() || url[end] != '=' || !is_secret_name(url.substr(0, end))) continue;
    const std::size_t value_end = std::min(url.find('&', end), url.size());
    masked.append(url.substr(0, end + 1));
    if (value_end > end + 1) masked.append(take(url.substr(end + 1, value_end - end - 1)));
    url.remove_prefix(value_end);
  }
  return masked;
}

// Every "[name=value:" and ":name=value]" of the options of one of several receivers, as FFmpeg shows them. A backslash
// quotes what would end the value.
std::string Masker::mask_options(std::string_view word) {
  std::string masked;
  std::size_t name = std::string_view::npos;
  for (std::size_t i = 0; i < word.size(); ++i) {
    masked += word[i];
    if (word[i] == '[' || word[i] == ':') name = i + 1;
    if (word[i] != '=' || name == std::string_view::npos || !is_secret_name(word.substr(name, i - name))) continue;
    const std::size_t begin = i + 1;
    while (i + 1 < word.size() && ((word[i + 1] != ':' && word[i + 1] != ']') || word[i] == '\\')) ++i;
    masked += take(word.substr(begin, i + 1 - begin));
  }
  return masked;
}

std::string Masker::mask_word(std::string_view word) {
  if (word.find("://") == std::string_view::npos) return std::string(word);
  const bool has_options = word.find("[f=") != std::string_view::npos;
  return mask_fields(mask_authorities(has_options ? mask_options(word) : std::string(word)));
}

std::string Masker::mask_text(std::string_view text) {
  std::string masked;
  masked.reserve(text.size());
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(white_space), text.size());
    masked += mask_word(text.substr(0, end));
    const std::size_t next = std::min(text.find_first_not_of(white_space, end), text.size());
    masked += text.substr(end, next - end);
    text.remove_prefix(next);
  }
  return masked;
}

}  // namespace

bool is_secret_name(std::string_view name) {
  std::string plain;
  for (const char c : name.substr(0, 32)) {
    if (c != '_' && c != '-') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return std::ranges::any_of(
      secret_names, [&](std::string_view word) { return plain == word || (plain.ends_with(word) && word.size() > 4); });
}

bool may_hold_passwords(std::string_view text) { return text.find("://") != std::string_view::npos; }

std::string mask_passwords(std::string_view text, std::vector<std::string>* found) {
  if (!may_hold_passwords(text)) return std::string(text);
  return Masker(found).mask_text(text);
}

std::string mask_url(std::string_view url, std::vector<std::string>* found) { return Masker(found).mask_word(url); }

}  // namespace weir
