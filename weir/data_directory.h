#pragma once

#include <stdexcept>
#include <string>

#include "backend/platform/descriptor.h"

namespace weir {

/// The server can't start; the message tells the operator why.
struct StartFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The one directory in which a server keeps everything, locked against a second server while this lives.
class DataDirectory {
 public:
  /// Creates the directory and its folders where they are missing, and locks it. Throws `StartFailure` when it can't be
  /// written, or when another server has locked it.
  explicit DataDirectory(const std::string& path);

  /// Tells the backend's `Config` where the folders are.
  void apply() const;

 private:
  void make_folders() const;
  void lock();

  std::string path_;
  Descriptor lock_;
};

}  // namespace weir
