#pragma once

#include "backend/web/router.h"

namespace weir {

/// The web console: its pages at / and below, and what they load from /assets. Where the program was built without it,
/// / leads to the description of the API.
void add_console_routes(Router& router);

}  // namespace weir
