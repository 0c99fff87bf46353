#pragma once

#include "backend/collaborators/history.h"

namespace weir {

/// Whether the end of a cycle repeats the one before: of the same cause, exit status, text, input and asker, both of
/// cycles shorter than a minute. Memory addresses in the texts may differ, as FFmpeg prints them.
bool repeats_end(const JournalEntry& last, const JournalEntry& end);

/// The row that stands for both.
HistoryEntry extend(const HistoryEntry& last, const JournalEntry& end);

}  // namespace weir
