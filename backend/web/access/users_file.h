#pragma once

#include <functional>
#include <string>

#include "backend/web/access/user_list.h"

namespace weir {

/// users.json in the data directory, which only its owner can read. Changed by the command line while a server runs.
class UsersFile {
 public:
  explicit UsersFile(const std::string& data_directory);

  /// Empty where there is no file. Throws `ValueError` for a file that can't be understood, `std::system_error` for one
  /// that can't be read.
  UserList load() const;

  /// Replaces the file whole, and waits until the disk has it. Changes at the same time follow each other. The file
  /// belongs to the owner of the directory, for whom root works. Blocks; throws as `load`, and what `change` throws.
  void change(const std::function<void(UserList&)>& change) const;

  const std::string& path() const noexcept { return path_; }

 private:
  std::string directory_;
  std::string path_;
};

}  // namespace weir
