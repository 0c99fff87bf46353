#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "backend/stream/manager/stream_manager.h"
#include "backend/web/log/stream_log.h"

namespace weir {

struct StreamLogSettings {
  std::string directory;                  ///< empty: no files
  std::uint64_t max_bytes = 10ULL << 20;  ///< of one file
  int old_files = 3;
};

/// Writes the streams' logs to DIRECTORY/ID.log as well, once a second; the older ones are ID.log.1, ID.log.2 …. What a
/// full or slow disk does not take is dropped: nothing is kept but the logs themselves.
class StreamLogFiles {
 public:
  /// The manager outlives this.
  StreamLogFiles(StreamManager& manager, StreamLogSettings settings)
      : manager_(manager), settings_(std::move(settings)) {}

  /// Runs until it is killed; ends at once where no files are wanted.
  Async<> run();
  /// Writes what is not yet written.
  Async<> flush();

 private:
  struct Piece {
    std::string path;
    std::string text;
  };

  Async<> write(std::vector<Piece> pieces);
  void report(const std::string& failure);

  StreamManager& manager_;
  StreamLogSettings settings_;
  std::map<long long, LogReader> readers_;  ///< by stream
  std::optional<TimePoint> reported_at_;
};

/// Appends to a log file, which gives way to a new one when it would become larger than the limit. Throws
/// `std::system_error`.
void append_to_log(const std::string& path, std::string_view text, const StreamLogSettings& settings);

}  // namespace weir
