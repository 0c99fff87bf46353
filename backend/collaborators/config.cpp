#include "backend/collaborators/config.h"

namespace weir {

std::string Config::VERSION = WEIR_VERSION;

}  // namespace weir
