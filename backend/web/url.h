#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// The target of a request, decoded.
struct Target {
  /// The host and port of a target in absolute form ("http://host:80/path"); empty otherwise.
  std::string host;
  /// The segments of the path: "/api/streams" is "api", "streams"; "/" is one empty segment. No segment holds a "/" or
  /// a NUL, nor is it "." or "..".
  std::vector<std::string> path;
  /// The query's parameters; those of one name in their order.
  std::multimap<std::string, std::string, std::less<>> query;
};

/// Decodes "/a/b%20c?x=1". Nothing for a text that is no target, or whose path could leave a directory.
std::optional<Target> parse_target(std::string_view text);

/// Whether the text can be a host name or address, with or without a port.
bool is_authority(std::string_view text);

}  // namespace weir
