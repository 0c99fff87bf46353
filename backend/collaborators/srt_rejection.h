#pragma once

#include <string_view>

namespace weir {

/// Why the peer of an SRT connection was rejected, or rejects: "Incorrect passphrase". It stands only in a line that
/// libsrt prints itself; empty for any other line.
std::string_view find_srt_rejection(std::string_view line);

}  // namespace weir
