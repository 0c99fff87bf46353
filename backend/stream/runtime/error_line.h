#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace weir {

/// The latest error that a transcoder printed. FFmpeg marks errors by colours (libavutil/log.c: 196 and 208 of 256),
/// which the transcoder's environment forces.
class ErrorLine {
 public:
  static constexpr std::size_t max_bytes = 300;

  /// Looks at a line of standard error, which may hold anything.
  void look(std::string_view line);
  /// The error without control characters; empty when there was none.
  const std::string& text() const noexcept { return text_; }

 private:
  void keep(std::string error);

  std::string text_;
  int lines_since_ = 0;
};

/// The last line of a log that says something, in the same form: for programs that print errors without colours.
std::string last_line(std::string_view log);

}  // namespace weir
