#pragma once

#include <string>

#include "backend/collaborators/journal.h"

namespace weir {

/// The entry in words, without the stream's name: "ended by itself with code 1 after 12 s: Connection refused; next
/// launch in 3 s". Passwords are masked.
std::string describe(const JournalEntry& entry);

/// A length of time as people say it: "0.4 s", "12 s", "3 min 20 s", "2 h 5 min", "3 d 4 h".
std::string describe_seconds(double seconds);

}  // namespace weir
