#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "backend/stream/runtime/stream.h"
#include "backend/web/live_body.h"
#include "backend/web/request.h"

namespace weir {

/// What somebody wants to see of a stream's log.
struct LogView {
  bool all = false;    ///< also which files FFmpeg opens for writing: most lines of an HLS output
  bool plain = false;  ///< without console codes such as colours
  bool follow = false;
  std::optional<std::size_t> tail = {};  ///< only the last lines
};

/// Reads "?all=1&plain=1&follow=1&tail=N". Throws `HttpError` with 400.
LogView parse_log_view(const Request& request);

/// Reads a stream's log bit by bit, with the time ahead of each line, a line where each cycle begins, and passwords
/// masked.
class LogReader {
 public:
  explicit LogReader(LogView view) : view_(view) {}

  /// The lines that have come since the last call, at most those that the log keeps. What it lost meanwhile is said.
  std::string read(const StandardBuffer& log);

 private:
  void append_cycle(std::string& text, const StandardBuffer::Mark& mark);
  void append_line(std::string& text, std::string_view line, WallTime time) const;

  LogView view_;
  std::optional<StandardBuffer::Position> position_;
  long long last_cycle_ = 0;  ///< whose beginning was shown
};

/// The last lines of a text.
std::string last_lines(std::string text, std::size_t count);

/// A stream's log as it grows. It ends when the stream is deleted.
class LogFollower final : public LiveBody {
 public:
  LogFollower(std::shared_ptr<Stream> stream, LogView view);
  Async<std::vector<LiveSlice>> next() override;

 private:
  std::shared_ptr<Stream> stream_;
  LogView view_;
  LogReader reader_;
  bool begun_ = false;
};

}  // namespace weir
