#pragma once

#include <map>
#include <string>

namespace weir {

enum class FilterOptionKind {
  plain,
  reads_file,  ///< the path of a file or directory that is read
  refused,     ///< writes a file or loads code
};

/// A filter that documents may use.
struct AllowedFilter {
  std::map<std::string, FilterOptionKind, std::less<>> options;
  bool only_plain = true;  ///< all its options are plain
};

using FilterTable = std::map<std::string, AllowedFilter, std::less<>>;

/// The filters that only change video and audio, and all their options.
const FilterTable& get_filter_table();

}  // namespace weir
