#pragma once

#include <optional>
#include <string_view>

namespace weir {

/// The figures of a progress line as they stand in it.
struct ProgressFields {
  std::optional<std::string_view> fps;
  std::optional<std::string_view> quality;
  std::string_view time;
  std::string_view bitrate;  ///< with its unit
  std::string_view speed;    ///< with its suffix
};

/// Searches a line for the expression
///
///     (?:fps=\s*(\S+).+q=\s*(\S+).+)?time=\s*(\S+).+bitrate=\s*(\S+).+speed=\s*(\S+)
///
/// and gives what a backtracking engine gives: the leftmost match, every repetition as long as it can be. White space
/// is that of ASCII; a line end stands at the end of the line only. One pass from the end, in time linear in the line
/// whatever it holds, without allocation.
std::optional<ProgressFields> find_progress(std::string_view line);

}  // namespace weir
