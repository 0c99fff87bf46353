#pragma once

#include "backend/web/router.h"

namespace weir {

/// /api/openapi.yaml, and the start page, which leads to it.
void add_openapi_routes(Router& router);

}  // namespace weir
