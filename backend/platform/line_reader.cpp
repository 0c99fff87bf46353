#include "backend/platform/line_reader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "backend/platform/failure.h"
#include "backend/platform/utf8.h"

namespace weir {

std::optional<std::string> LineSplitter::next() {
  if (skip_line_feed_ && position_ < input_.size()) {
    if (input_[position_] == '\n') ++position_;
    skip_line_feed_ = false;
  }
  const std::size_t end = input_.find_first_of("\r\n", position_);
  if (end != std::string::npos) {
    take(std::string_view(input_).substr(position_, end - position_));
    skip_line_feed_ = input_[end] == '\r';
    position_ = end + 1;
    return complete_line(true);
  }
  take(std::string_view(input_).substr(position_));
  input_ = {};
  position_ = 0;
  if (finished_ && !line_.empty()) return complete_line(false);
  return std::nullopt;
}

void LineSplitter::take(std::string_view bytes) { line_ += bytes.substr(0, max_line_bytes - line_.size()); }

std::string LineSplitter::complete_line(bool terminated) {
  std::string line = to_valid_utf8(std::exchange(line_, {}));
  if (terminated) line += '\n';
  return line;
}

Async<std::optional<std::string>> LineReader::next() {
  for (;;) {
    if (auto line = splitter_.next()) co_return line;
    if (ended_) co_return std::nullopt;
    co_await watch_.readable();
    if (!fill()) {
      ended_ = true;
      splitter_.finish();
    }
  }
}

bool LineReader::fill() {
  // One for all readers: nothing is kept here between two waits.
  static std::array<char, 64 * 1024> buffer;
  const ssize_t size = ::read(fd_, buffer.data(), buffer.size());
  if (size > 0) splitter_.feed(std::string_view(buffer.data(), static_cast<std::size_t>(size)));
  if (size < 0 && errno != EAGAIN && errno != EINTR) throw_errno("read");
  return size != 0;
}

}  // namespace weir
