#pragma once

#include <cstddef>
#include <string_view>

#include "backend/base/value.h"

namespace weir {

/// Bounds of a text that holds many documents.
inline constexpr std::size_t max_import_bytes = 16 << 20;
inline constexpr std::size_t max_import_members = 500'000;

/// Reads such a text as `parse_json` reads a document. It may take a second.
Value parse_large_json(std::string_view text);

}  // namespace weir
