#pragma once

#include <cstddef>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// Bounds of a document: its text's size in bytes, the members of all its mappings and lists together, those of one
/// mapping, and its nesting.
inline constexpr std::size_t max_document_bytes = 1 << 20;
inline constexpr std::size_t max_members = 10'000;
inline constexpr std::size_t max_mapping_members = 1'000;
inline constexpr std::size_t max_nesting = 64;

/// Reads a JSON text within those bounds, in time linear in its size. Throws `ValueError` with what is wrong and
/// where. An integer beyond 64 bits is refused: as a fraction it would lose digits.
Value parse_json(std::string_view text);

/// Throws `ValueError` when the value's indented JSON text could not be read again because of those bounds.
void check_bounds(const Value& value);

/// The same for members and nesting alone, `headroom` members left free in each mapping and in all.
void check_members(const Value& value, std::size_t headroom = 0);

}  // namespace weir
