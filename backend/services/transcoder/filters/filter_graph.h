#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace weir {

struct FilterOption {
  std::string name;  ///< empty: given by position
  std::string value;
};

/// One filter of a graph, without its labels and its instance name ("scale@small").
struct FilterCall {
  std::string name;
  std::vector<FilterOption> options;
};

/// Reads a graph exactly as FFmpeg does: its labels, separators, quotes and escapes at both levels. Throws `ValueError`
/// for a text that FFmpeg cannot read, and for one whose end would take in what follows it.
std::vector<FilterCall> read_filter_graph(std::string_view graph);

/// The value of a filter's option, escaped for both levels.
std::string escape_filter_value(std::string_view value);

}  // namespace weir
