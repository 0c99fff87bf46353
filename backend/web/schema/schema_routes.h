#pragma once

#include "backend/web/router.h"

namespace weir {

/// GET /api/schema/stream and /api/schema/profile: what documents may hold.
void add_schema_routes(Router& router);

}  // namespace weir
