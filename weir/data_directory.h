#pragma once

#include <stdexcept>
#include <string>

#include "backend/platform/descriptor.h"

namespace weir {

/// A reason why the server can't start, for a person to read.
struct StartFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The one directory in which a server keeps everything, locked against a second server while this lives.
class DataDirectory {
 public:
  /// Creates the directory and its folders where they are missing, and locks it. Throws `StartFailure`: it can't be
  /// written, or a server runs in it already, which is named.
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
