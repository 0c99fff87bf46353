#pragma once

#include <nlohmann/json_fwd.hpp>

namespace weir {

/// A JSON value whose objects keep the order of their members ("ordered mappings").
using Value = nlohmann::ordered_json;

}  // namespace weir
