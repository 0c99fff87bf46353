#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "backend/web/access/users_file.h"

namespace weir {

/// The users file as it is now.
class LiveUsers {
 public:
  /// An empty directory: there are no users. Throws as `UsersFile::load`.
  explicit LiveUsers(const std::string& data_directory);

  /// Reads the file again if it has changed, which one system call finds out. A file that can't be used is logged, and
  /// the list stays as it was.
  const UserList& get();
  /// Whether there is a user, or was since the server started: a file that vanishes opens nothing.
  bool are_needed();
  /// Null without a directory.
  const UsersFile* file() const noexcept { return file_ ? &*file_ : nullptr; }

 private:
  using Status = std::optional<struct stat>;

  Status look() const;
  void read(const Status& status);

  std::optional<UsersFile> file_;
  Status seen_;
  UserList list_;
  bool had_users_ = false;
};

}  // namespace weir
