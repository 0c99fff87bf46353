#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// The target of a request, decoded.
struct Target {
  /// The segments of the path: "/api/streams" is "api", "streams"; "/" is one empty segment. No segment holds a "/" or
  /// a NUL, nor is it "." or "..".
  std::vector<std::string> path;
  /// The query's parameters; of several with one name the last.
  std::map<std::string, std::string, std::less<>> query;
};

/// Decodes "/a/b%20c?x=1". Nothing for a text that is no target, or whose path would mean a way through directories.
std::optional<Target> parse_target(std::string_view target);

/// The text with each "%41" decoded. Nothing when an escape is incomplete or no hexadecimal number.
std::optional<std::string> percent_decode(std::string_view text);

}  // namespace weir
