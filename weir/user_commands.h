#pragma once

#include "backend/services/configuration/user_command.h"

namespace weir {

/// Changes or prints who may use the server with that data directory; one that runs notices. Returns the exit status;
/// throws with the reason when it fails.
int run_user_command(const UserCommand& command);

}  // namespace weir
