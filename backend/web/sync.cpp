#include "backend/web/sync.h"

#include <fmt/core.h>

#include <system_error>

#include "backend/base/log.h"
#include "backend/platform/files.h"

namespace weir {

Async<> sync_or_log(std::filesystem::path path) {
  try {
    co_await sync_file(path);
  } catch (const std::system_error& failure) {
    log(LogLevel::error, "Web", fmt::format("Failed to sync {}", failure.what()));
  }
}

}  // namespace weir
