#pragma once

#include <string>

namespace weir {

/// The JSON Schema (2020-12) of a stream's document, as JSON text.
const std::string& stream_schema();

/// The same for a profile's document.
const std::string& profile_schema();

}  // namespace weir
