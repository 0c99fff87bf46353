#pragma once

#include <string>
#include <string_view>

namespace weir {

/// The value of a filter's option, escaped so that it ends where it ends, whatever it holds.
std::string escape_filter_value(std::string_view value);

/// The name of a filter of the graph that is not for documents: it loads code, opens a socket or writes a file. Empty
/// when there is none. Names are read exactly as FFmpeg reads them, with its quotes and escapes.
std::string find_forbidden_filter(std::string_view graph);

}  // namespace weir
