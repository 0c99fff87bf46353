#pragma once

#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/child_process.h"
#include "backend/platform/line_reader.h"

namespace weir {

/// A stream's log: the latest lines of its transcoder, bounded to 256 KiB; the oldest lines go first.
class StandardBuffer {
 public:
  static constexpr std::size_t capacity = 256 * 1024;

  void write(std::string_view text);
  std::string read() const;
  /// Empties the buffer. Returns true.
  bool truncate();

 private:
  std::string text_;
};

/// The text lines of a descriptor that is not owned, for one reader; see `LineReader`.
inline LineReader readline2(int fd) { return LineReader(fd); }

/// The hook run in the transcoder child before its program starts: it leads its own process group.
inline constexpr void (*preexec_fn)() = lead_group_and_die_with_parent;

/// Console control sequences (ECMA-48): CSI sequences such as colours, OSC strings and two-character escapes.
struct ConsoleCodesPattern {
  /// The sequences in the line, in order.
  std::vector<std::string_view> findall(std::string_view line) const;
};
inline constexpr ConsoleCodesPattern console_codes_pattern;

/// The text without console control sequences.
std::string strip_console_codes(std::string_view line);

/// Why an HLS playlist can't have this file name; empty when it can.
std::string find_playlist_name_fault(std::string_view name);

/// The numbers from 0 to 59 that a field of a timetable names.
struct IntegerList {
  std::bitset<60> numbers;

  bool contains(int number) const { return number >= 0 && number < 60 && numbers[static_cast<std::size_t>(number)]; }
  bool empty() const noexcept { return numbers.none(); }
};

/// Reads a timetable's field: numbers from 0 to 59 and ranges "30-45", separated by commas, with white space around
/// each; "*" is every number; null and blank texts are none, and a number stands for itself. Throws `ValueError` for
/// any other text, and for one of more than 1024 bytes, and `TypeError` for any other kind.
IntegerList str2intl(const Value& text);

}  // namespace weir
