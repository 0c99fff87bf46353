#pragma once

#include "backend/base/value.h"
#include "backend/collaborators/journal.h"

namespace weir {

/// An entry as the API, events and webhooks show it: "number", "time", "kind", "stream" and "label" (null for entries
/// about the server), those of its other members that are set, and "description" in words. Passwords are masked.
Value to_value(const JournalEntry& entry);

}  // namespace weir
