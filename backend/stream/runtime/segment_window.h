#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace weir {

/// A segment file's name, "playlist_VARIANT_NUMBER.ts" with anything behind it.
struct SegmentName {
  std::size_t variant;
  std::string number;  ///< digits
};

/// Nothing for any other name. A variant beyond any index is the largest one.
std::optional<SegmentName> parse_segment_name(std::string_view name);

/// The completed segments of each HLS variant, oldest first, at most the playlist's length plus one of each.
class SegmentWindow {
 public:
  /// One playlist length per variant.
  explicit SegmentWindow(std::vector<int> list_sizes);

  /// A segment is complete. The name of the oldest one of its variant when that has become one too many: it is to be
  /// deleted. Names of no segment, or of a variant that does not exist, are ignored.
  std::optional<std::string> complete(const std::string& name);

  /// Events were lost: the directory holds these names. As `complete` for every segment among them that is not known,
  /// in the order of their numbers; all names that are to be deleted.
  std::vector<std::string> read_again(const std::vector<std::string>& names);

 private:
  std::optional<std::string> append(std::size_t variant, const std::string& name);

  std::vector<int> list_sizes_;
  std::vector<std::deque<std::string>> segments_;
  std::set<std::string> read_again_;  ///< taken from the directory; an event may still come for them
};

}  // namespace weir
