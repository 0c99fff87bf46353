#include "backend/web/access/live_users.h"

#include "backend/base/log.h"

namespace weir {

namespace {

bool are_equal(const std::optional<struct stat>& a, const std::optional<struct stat>& b) {
  if (!a || !b) return !a && !b;
  return a->st_ino == b->st_ino && a->st_size == b->st_size && a->st_ctim.tv_sec == b->st_ctim.tv_sec &&
         a->st_ctim.tv_nsec == b->st_ctim.tv_nsec;
}

}  // namespace

LiveUsers::LiveUsers(const std::string& data_directory) {
  if (data_directory.empty()) return;
  file_.emplace(data_directory);
  read(look());
}

LiveUsers::Status LiveUsers::look() const {
  struct stat status{};
  if (::stat(file_->path().c_str(), &status) != 0) return std::nullopt;
  return status;
}

// A file that changes meanwhile is read once more.
void LiveUsers::read(const Status& status) {
  seen_ = status;
  list_ = file_->load();
  had_users_ |= !list_.users.empty();
}

const UserList& LiveUsers::get() {
  if (!file_) return list_;
  const Status status = look();
  if (are_equal(status, seen_)) return list_;
  try {
    read(status);
    log(LogLevel::info, "Access", "The users have changed");
  } catch (const std::exception& failure) {
    log(LogLevel::error, "Access", std::string("The users stay as they were: ") + failure.what());
  }
  return list_;
}

bool LiveUsers::are_needed() {
  get();
  return had_users_;
}

}  // namespace weir
