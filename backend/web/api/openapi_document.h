#pragma once

#include <string_view>

namespace weir {

/// docs/openapi.yaml, embedded when the program is built: every call of the API, in YAML.
std::string_view openapi_document();

}  // namespace weir
