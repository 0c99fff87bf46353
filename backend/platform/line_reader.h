#pragma once

#include <optional>
#include <string>

#include "backend/platform/poller.h"

namespace weir {

/// Cuts a byte stream into lines. A line ends at "\n", "\r" or "\r\n" and keeps its end as one "\n"; the last one may
/// have none. Bytes that are not UTF-8 become U+FFFD. A line is cut at 64 KiB and its rest dropped.
class LineSplitter {
 public:
  static constexpr std::size_t max_line_bytes = 64 * 1024;

  void feed(std::string_view bytes) { input_.append(bytes); }
  /// What is left of an unfinished line is the last line.
  void finish() { finished_ = true; }
  std::optional<std::string> next();

 private:
  void take(std::string_view bytes);
  std::string complete_line(bool terminated);

  std::string input_;
  std::size_t position_ = 0;
  std::string line_;
  bool skip_line_feed_ = false;
  bool finished_ = false;
};

/// The text lines of a descriptor, for one reader. Does not own the descriptor.
///
///     while (auto line = co_await reader.next()) …
class LineReader {
 public:
  explicit LineReader(int fd) noexcept : fd_(fd), watch_(fd) {}

  /// The next line, or nothing at the end. Yields to the loop while no complete line is there. Throws
  /// `std::system_error` when reading fails.
  Async<std::optional<std::string>> next();

 private:
  /// Reads what is there; false at the end.
  bool fill();

  int fd_;
  ReadWatch watch_;
  LineSplitter splitter_;
  bool ended_ = false;
};

}  // namespace weir
