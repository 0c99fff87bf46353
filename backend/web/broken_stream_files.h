#pragma once

#include <map>
#include <string>

#include "backend/base/value.h"
#include "backend/stream/manager/stream_manager.h"

namespace weir {

/// The files of the stream directory that are no streams: those that could not be loaded and stay under their names,
/// and those that were set aside: "12.conf" renamed to "12.conf.broken".
class BrokenStreamFiles {
 public:
  /// The manager outlives this.
  explicit BrokenStreamFiles(StreamManager& manager) : manager_(manager) {}

  /// The file stays where it is.
  void keep(const std::string& file, const std::string& reason) { reasons_[file] = reason; }
  /// The file was loaded.
  void forget(const std::string& file) { reasons_.erase(file); }
  /// Why the file was kept; empty when it was not.
  std::string reason(const std::string& file) const;
  /// Renames the file. Returns its new name. Throws `std::system_error`.
  std::string set_aside(const std::string& file);

  /// The files that are there: a list of {"file", "reason"}. One that was set aside is read again: its reason says why
  /// it does not load, or under which free name it would be loaded.
  Async<Value> list();

 private:
  std::string find_reason(const std::string& file);
  long long free_number(const std::string& file);
  bool is_taken(long long id, const std::string& file) const;

  StreamManager& manager_;
  std::map<std::string, std::string> reasons_;     ///< of the files that kept their names
  std::map<std::string, long long> free_numbers_;  ///< under which files that were set aside could be loaded
};

}  // namespace weir
