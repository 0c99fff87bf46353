#pragma once

#include <filesystem>

#include "backend/platform/async.h"

namespace weir {

/// `sync_file` for what cannot be taken back, such as a deletion: a failure is logged.
Async<> sync_or_log(std::filesystem::path path);

}  // namespace weir
