#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/collaborators/journal.h"
#include "backend/platform/async.h"
#include "backend/platform/clock.h"

namespace weir {

/// Lets whoever has its token watch one stream for a time.
struct PublishingLink {
  long long id = 0;
  long long stream = 0;
  std::string name = {};
  std::string by = {};             ///< who made it
  std::chrono::seconds created{};  ///< since 1970
  std::chrono::seconds expires{};  ///< the same
};

/// The links of all streams. A token is "ID.EXPIRES.SIGNATURE", signed by HMAC-SHA256 with the server's key; one that
/// was revoked, or whose stream was deleted, is valid no more.
class PublishingLinks : public JournalReader {
 public:
  static constexpr std::size_t max_links_per_stream = 200;
  static constexpr std::size_t max_links = 10'000;
  static constexpr std::size_t max_name_bytes = 200;
  static constexpr std::chrono::seconds max_lifetime = std::chrono::days(3660);

  /// Keeps key and links in the files "links.key", made when it is missing, and "links.json" of the directory; in
  /// memory only when it is empty. Links that can't be read are set aside, with a line in the log. Throws `ValueError`
  /// or `std::system_error` for a key that can't be used.
  explicit PublishingLinks(std::string directory);

  /// Those of a stream that have not expired, by id.
  std::vector<PublishingLink> of_stream(long long stream) const;
  /// Throws `std::length_error` when there are too many, `std::system_error` when the file can't be written; nothing is
  /// added then.
  Async<PublishingLink> add(PublishingLink link);
  /// Revokes it; false when the stream has none with this id. Throws as `add`.
  Async<bool> remove(long long stream, long long id);

  std::string make_token(const PublishingLink& link) const;
  /// Whether the token is that of a link of the stream, now. Takes as long for any wrong signature.
  bool is_valid(long long stream, std::string_view token) const;

  /// Forgets the links of a stream that is deleted: its id may be given again.
  void read(const JournalEntry& entry) override;

 private:
  void load_key();
  void load_links();
  void save() const;
  Async<> sync() const;
  void forget_expired();
  std::string sign(long long stream, std::string_view id, std::string_view expires) const;

  std::string directory_;
  std::string key_;
  std::map<long long, PublishingLink> links_;  ///< by id
  long long next_id_ = 1;
};

}  // namespace weir
