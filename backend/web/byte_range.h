#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace weir {

/// A part of a file.
struct ByteRange {
  std::uint64_t offset;
  std::uint64_t size;
};

/// What a Range header asks of a file: nothing for the whole of it, which also answers several ranges, other units and
/// what is no range. A range beyond the file has size 0.
std::optional<ByteRange> parse_range(std::string_view header, std::uint64_t file_size);

}  // namespace weir
