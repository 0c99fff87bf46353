#pragma once

#include <string>
#include <vector>

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/broken_stream_files.h"

namespace weir {

/// The registry of a server: a file that can't be loaded never stops the others from loading, and is not lost.
class ServerStreamManager : public StreamManager {
 public:
  /// As in the base, but raises nothing. A file whose document raises one is set aside. A file that the system
  /// fails to read, or whose stream it fails to save or to give directories, keeps its name and its id.
  bool load_stream_from_file(const std::string& filename) override;

  /// Tries the stream files that are no streams again, every 30 s: one that loads is registered, and started if it was
  /// active. Runs until it is killed.
  Async<> retry_missing_streams();

  /// The stream files that are no streams at the moment and are tried again.
  std::vector<std::string> missing_files() const;

  /// Whether there are stream files and the system failed each of them.
  bool nothing_could_be_loaded() const { return streams.empty() && system_failed_; }

  BrokenStreamFiles broken_files{*this};

 private:
  void replace(const Stream& other, const std::string& file);
  void keep(const std::string& file, const std::string& reason);
  void keep_with_id(const std::string& file, const std::string& reason);
  void set_aside(const std::string& file, const std::string& reason);
  Async<> load_missing_streams();
  Async<bool> load_missing_stream(std::string file, double delay);

  bool system_failed_ = false;
};

}  // namespace weir
