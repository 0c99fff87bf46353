#pragma once

#include <string>

#include "backend/web/response.h"

namespace weir {

/// The status line and the headers of an answer, up to and with the empty line.
std::string response_head(const Response& response, bool keep_alive);

}  // namespace weir
