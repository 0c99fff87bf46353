#pragma once

#include <cstddef>
#include <string>

#include "backend/platform/descriptor.h"

namespace weir {

/// A file in memory that takes what one program writes, up to a limit: writes beyond it fail. It can be read while the
/// program runs.
class OutputFile {
 public:
  /// `limit` in bytes. Throws `std::system_error`, as does `content`.
  explicit OutputFile(std::size_t limit);

  int fd() const noexcept { return file_.get(); }
  /// What has been written so far.
  std::string content() const;

 private:
  Descriptor file_;
};

}  // namespace weir
