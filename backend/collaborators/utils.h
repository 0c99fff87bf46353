#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/child_process.h"
#include "backend/platform/clock.h"
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

  /// A position in all that was ever written, counted in bytes.
  using Position = std::uint64_t;
  /// What was written from the position on has this time, up to the next mark.
  struct Mark {
    Position position = 0;
    WallTime time;
    long long cycle = 0;  ///< number of the cycle that begins here, or 0
  };

  /// A cycle begins here.
  void mark_cycle(long long number) { add_mark(number); }
  /// Where the text that is kept begins and ends.
  Position begin() const noexcept { return begin_; }
  Position end() const noexcept { return begin_ + text_.size(); }
  /// The text from the position on. It holds until the next write.
  std::string_view text_from(Position position) const;
  /// Those of the text that is kept, by position; the first one may stand before it.
  const std::vector<Mark>& marks() const noexcept { return marks_; }

 private:
  // Lines of one burst have one time.
  static constexpr std::chrono::milliseconds grain{20};

  void add_mark(long long cycle);
  void drop(std::size_t size);

  std::string text_;
  Position begin_ = 0;
  std::vector<Mark> marks_;
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
