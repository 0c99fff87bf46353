#pragma once

#include <cstddef>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// Bounds of a document: its text's size in bytes, the members of all its mappings together, and its nesting.
inline constexpr std::size_t max_document_bytes = 1 << 20;
inline constexpr std::size_t max_members = 10'000;
inline constexpr std::size_t max_nesting = 64;

/// Reads a JSON text within those bounds, in time linear in its size. Throws `ValueError` with a message for a person:
/// what is wrong and where.
Value parse_json(std::string_view text);

/// Throws `ValueError` when the value's JSON text could not be read again because of those bounds.
void check_bounds(const Value& value);

}  // namespace weir
