#include "backend/stream/manager/active_status.h"

#include <nlohmann/json.hpp>

namespace weir {

bool is_active(const Value& status) { return status == "starting" || status == "running" || status == "restarting"; }

}  // namespace weir
