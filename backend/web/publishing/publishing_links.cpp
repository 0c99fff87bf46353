#include "backend/web/publishing/publishing_links.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "backend/base/bounded_json.h"
#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/platform/loop.h"

namespace weir {

namespace {

// Whoever has the key can make links.
constexpr unsigned file_mode = 0600;
constexpr std::size_t key_bytes = 32;
constexpr std::size_t max_file_bytes = 16 << 20;

std::chrono::seconds seconds_now() {
  return std::chrono::floor<std::chrono::seconds>(Loop::current().clock().wall().time_since_epoch());
}

std::string make_key() {
  std::string key(key_bytes, '\0');
  if (::RAND_bytes(reinterpret_cast<unsigned char*>(key.data()), key_bytes) != 1)
    throw ValueError("The system gives no random bytes for the key of the links");
  return key;
}

// Without padding, for paths (RFC 4648, section 5).
std::string to_base64url(const unsigned char* bytes, std::size_t size) {
  std::string text((size + 2) / 3 * 4 + 1, '\0');
  const int length = ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size));
  text.resize(static_cast<std::size_t>(length));
  std::ranges::replace(text, '+', '-');
  std::ranges::replace(text, '/', '_');
  return boost::trim_right_copy_if(text, boost::is_any_of("="));
}

long long read_integer(const Value& mapping, const char* name) {
  const auto number = parse_integer(to_text(member(mapping, name)));
  if (!number) throw ValueError(fmt::format("{}: not a whole number", name));
  return *number;
}

PublishingLink read_link(const Value& form) {
  return {.id = read_integer(form, "id"),
          .stream = read_integer(form, "stream"),
          .name = to_text(member(form, "name")),
          .by = to_text(member(form, "by")),
          .created = std::chrono::seconds(read_integer(form, "created")),
          .expires = std::chrono::seconds(read_integer(form, "expires"))};
}

Value to_form(const PublishingLink& link) {
  return {{"id", link.id}, {"stream", link.stream},           {"name", link.name},
          {"by", link.by}, {"created", link.created.count()}, {"expires", link.expires.count()}};
}

}  // namespace

PublishingLinks::PublishingLinks(std::string directory) : directory_(std::move(directory)) {
  load_key();
  load_links();
}

void PublishingLinks::load_key() {
  const std::string path = directory_.empty() ? "" : join_path(directory_, "links.key");
  if (path.empty() || !std::filesystem::exists(path)) {
    key_ = make_key();
    if (!path.empty()) replace_file(path, key_, file_mode);
  } else {
    key_ = read_file(path, key_bytes);
  }
  if (key_.size() != key_bytes)
    throw ValueError(fmt::format("{} is not a key of {} bytes; without the file a new one is made", path, key_bytes));
}

void PublishingLinks::load_links() {
  const std::string path = directory_.empty() ? "" : join_path(directory_, "links.json");
  std::error_code error;
  if (path.empty() || !std::filesystem::exists(path, error)) return;
  try {
    const Value document = Value::parse(read_file(path, max_file_bytes));
    next_id_ = read_integer(document, "next_id");
    for (const Value& form : member(document, "links")) {
      PublishingLink link = read_link(form);
      next_id_ = std::max(next_id_, link.id + 1);
      links_.emplace(link.id, std::move(link));
    }
  } catch (const std::exception& failure) {
    log(LogLevel::error, "Web", fmt::format("{} is set aside as {}.broken: {}", path, path, failure.what()));
    std::filesystem::rename(path, path + ".broken", error);
  }
}

void PublishingLinks::save() const {
  if (directory_.empty()) return;
  Value list = Value::array();
  for (const auto& [id, link] : links_) list.push_back(to_form(link));
  const Value document = {{"next_id", next_id_}, {"links", std::move(list)}};
  replace_file(join_path(directory_, "links.json"), to_json(document), file_mode);
}

Async<> PublishingLinks::sync() const {
  if (!directory_.empty()) co_await sync_file(join_path(directory_, "links.json"));
}

void PublishingLinks::forget_expired() {
  std::erase_if(links_, [now = seconds_now()](const auto& entry) { return entry.second.expires <= now; });
}

std::vector<PublishingLink> PublishingLinks::of_stream(long long stream) const {
  std::vector<PublishingLink> links;
  for (const auto& [id, link] : links_)
    if (link.stream == stream && link.expires > seconds_now()) links.push_back(link);
  return links;
}

Async<PublishingLink> PublishingLinks::add(PublishingLink link) {
  forget_expired();
  const std::size_t same = of_stream(link.stream).size();
  if (same >= max_links_per_stream || links_.size() >= max_links)
    throw std::length_error(
        fmt::format("There are {} links, {} of this stream; revoke one first", links_.size(), same));
  link.id = next_id_++;
  link.created = seconds_now();
  links_.emplace(link.id, link);
  try {
    save();
  } catch (const std::system_error&) {
    links_.erase(link.id);
    throw;
  }
  co_await sync();
  co_return link;
}

Async<bool> PublishingLinks::remove(long long stream, long long id) {
  const auto found = links_.find(id);
  if (found == links_.end() || found->second.stream != stream) co_return false;
  auto removed = links_.extract(found);
  try {
    save();
  } catch (const std::system_error&) {
    links_.insert(std::move(removed));
    throw;
  }
  co_await sync();
  co_return true;
}

std::string PublishingLinks::sign(long long stream, std::string_view id, std::string_view expires) const {
  const std::string text = fmt::format("watch {} {} {}", stream, id, expires);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  ::HMAC(::EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(), &size);
  return to_base64url(digest.data(), size);
}

std::string PublishingLinks::make_token(const PublishingLink& link) const {
  const std::string id = std::to_string(link.id);
  const std::string expires = std::to_string(link.expires.count());
  return fmt::format("{}.{}.{}", id, expires, sign(link.stream, id, expires));
}

bool PublishingLinks::is_valid(long long stream, std::string_view token) const {
  const std::size_t first = token.find('.');
  const std::size_t second = token.find('.', std::min(first, token.size() - 1) + 1);
  if (token.empty() || first == std::string_view::npos || second == std::string_view::npos) return false;
  const std::string_view id = token.substr(0, first);
  const std::string_view expires = token.substr(first + 1, second - first - 1);
  const std::string_view given = token.substr(second + 1);
  const std::string signature = sign(stream, id, expires);
  if (given.size() != signature.size() || ::CRYPTO_memcmp(given.data(), signature.data(), signature.size()) != 0)
    return false;
  const auto found = links_.find(parse_integer(id).value_or(0));
  return found != links_.end() && found->second.stream == stream && found->second.expires > seconds_now();
}

void PublishingLinks::read(const JournalEntry& entry) {
  if (entry.kind != JournalKind::deleted || !entry.stream_id) return;
  const auto forgotten =
      std::erase_if(links_, [&](const auto& link) { return link.second.stream == *entry.stream_id; });
  if (forgotten > 0) save();
}

}  // namespace weir
