#include "backend/web/console/console_files.h"

namespace weir {

std::span<const ConsoleFile> console_files() { return {}; }

}  // namespace weir
