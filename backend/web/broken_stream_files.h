#pragma once

#include <map>
#include <string>

#include "backend/base/value.h"

namespace weir {

/// The stream files that can't be used. One of them never keeps the other streams off the air: before the manager loads
/// the directory, every file is tried on scratch objects, and one whose load raises a failure is renamed out of its way
/// ("12.conf" to "12.conf.broken"). A file that merely does not load stays where it is.
class BrokenStreamFiles {
 public:
  /// Tries every file of the stream directory. To be called before the manager's `init`. Throws `std::system_error`
  /// when the directory can't be read.
  void examine();

  /// A new stream is about to take the file's name: a file that lies there is renamed. Throws `std::system_error`.
  void make_room(const std::string& file);

  /// The files that are there and can't be used: a list of {"file", "reason"}.
  Value list() const;

 private:
  void examine_stream_file(const std::string& file);
  void set_aside(const std::string& file, const std::string& reason);

  std::map<std::string, std::string> reasons_;
};

}  // namespace weir
