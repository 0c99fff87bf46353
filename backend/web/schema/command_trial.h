#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/platform/async.h"

namespace weir {

struct CommandTrial {
  std::string fault;                 ///< why no command can be made; empty when one was
  std::vector<std::string> command;  ///< the transcoder's
};

/// Makes the command of a run of the document that reads the input, without a probe, and launches nothing. A document
/// without inputs or outputs is tried with ones that stand in for them.
Async<CommandTrial> try_command(std::shared_ptr<const Value> document, int input);

/// The command as it may be shown: without passwords and what is secret among the options.
std::vector<std::string> mask_command(std::vector<std::string> command);

}  // namespace weir
