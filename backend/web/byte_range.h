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

/// Parses a Range header. Nothing means the whole file: for several ranges, other units and invalid text. A range
/// beyond the end of the file has size 0.
std::optional<ByteRange> parse_range(std::string_view header, std::uint64_t file_size);

}  // namespace weir
