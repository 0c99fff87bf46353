#pragma once

#include "backend/web/router.h"

namespace weir {

/// /api/openapi.yaml
void add_openapi_routes(Router& router);

}  // namespace weir
