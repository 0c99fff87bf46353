#include "backend/web/access/sessions.h"

#include <algorithm>

#include "backend/web/access/secrets.h"

namespace weir {

std::string Sessions::begin(const User& user, TimePoint now) {
  make_room(user.name, now);
  std::string secret = make_secret();
  sessions_.emplace(hash_secret(secret), Session{user.name, user.password_hash, now, now});
  return secret;
}

const User* Sessions::find(const std::string& secret, const UserList& users, TimePoint now) {
  const auto found = sessions_.find(hash_secret(secret));
  if (found == sessions_.end()) return nullptr;
  Session& session = found->second;
  const User* user = users.find_user(session.user);
  if (is_over(session, now) || !user || user->password_hash != session.password_hash) {
    sessions_.erase(found);
    return nullptr;
  }
  session.used = now;
  return user;
}

void Sessions::end(const std::string& secret) { sessions_.erase(hash_secret(secret)); }

bool Sessions::is_over(const Session& session, TimePoint now) {
  return now - session.used >= idle || now - session.begin >= age;
}

void Sessions::make_room(const std::string& user, TimePoint now) {
  std::erase_if(sessions_, [&](const auto& entry) { return is_over(entry.second, now); });
  const auto of_user = std::ranges::count_if(sessions_, [&](const auto& entry) { return entry.second.user == user; });
  if (static_cast<std::size_t>(of_user) >= max_of_user) end_oldest(&user);
  if (sessions_.size() >= max_sessions) end_oldest(nullptr);
}

// Of one user, or of all.
void Sessions::end_oldest(const std::string* user) {
  auto oldest = sessions_.end();
  for (auto entry = sessions_.begin(); entry != sessions_.end(); ++entry) {
    if (user && entry->second.user != *user) continue;
    if (oldest == sessions_.end() || entry->second.used < oldest->second.used) oldest = entry;
  }
  if (oldest != sessions_.end()) sessions_.erase(oldest);
}

}  // namespace weir
