#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/clock.h"
#include "backend/web/access/role.h"

namespace weir {

/// Somebody who logs in with a password.
struct User {
  std::string name;
  Role role = Role::viewer;
  std::string password_hash;  ///< see `hash_password`
};

/// A program's credential, which it sends with each request.
struct ApiToken {
  std::string name;
  Role role = Role::viewer;
  std::string hash;  ///< see `hash_secret`
  WallTime created = {};
  std::optional<WallTime> expires = {};
};

/// Who may use the server. Names are unique among users and tokens: the journal shows them.
struct UserList {
  static constexpr std::size_t max_entries = 500;  ///< of users, and of tokens
  static constexpr std::size_t max_name = 64;

  std::vector<User> users;
  std::vector<ApiToken> tokens;

  /// Null when there is none.
  const User* find_user(std::string_view name) const;
  User* find_user(std::string_view name);
  /// The one with that secret, unless it has expired at `now`.
  const ApiToken* find_token(std::string_view secret, WallTime now) const;

  // These throw `ValueError` with the reason.
  void add(User user);
  void add(ApiToken token);
  void remove_user(std::string_view name);
  void remove_token(std::string_view name);

 private:
  void check_new(const std::string& name, std::size_t entries) const;
};

Value to_document(const UserList& list);
/// Throws `ValueError`.
UserList read_user_list(const Value& document);

}  // namespace weir
