#pragma once

#include <chrono>
#include <map>
#include <string>

#include "backend/platform/clock.h"
#include "backend/web/access/user_list.h"

namespace weir {

/// Who is logged in. Kept in memory: a restart of the server logs everybody out.
class Sessions {
 public:
  static constexpr std::chrono::hours idle{12};  ///< without a request
  static constexpr std::chrono::hours age{24 * 7};
  static constexpr std::size_t max_sessions = 1000;
  static constexpr std::size_t max_of_user = 20;  ///< beyond, the one that was unused for longest ends

  /// Returns the new session's secret.
  std::string begin(const User& user, TimePoint now);
  /// The user of the session; null when it has ended, or the user was removed or has another password since.
  const User* find(const std::string& secret, const UserList& users, TimePoint now);
  void end(const std::string& secret);

 private:
  struct Session {
    std::string user;
    std::string password_hash;
    TimePoint begin;
    TimePoint used;
  };
  using Table = std::map<std::string, Session>;  ///< by `hash_secret`

  static bool is_over(const Session& session, TimePoint now);
  void make_room(const std::string& user, TimePoint now);
  void end_oldest(const std::string* user);

  Table sessions_;
};

}  // namespace weir
