#pragma once

#include <optional>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/history.h"

namespace weir {

/// What a stream did between two times: "intervals" of one status and input each, and "restarts" with their causes. The
/// status words are those of a stream, and "failed" while a stream waits to be started again, and "server_down". There
/// is no interval where nothing is known.
///
/// `rows`: those of the time, the oldest first. `before`: the last row before it.
Value make_timeline(const std::vector<HistoryEntry>& rows, const std::optional<HistoryEntry>& before, WallTime from,
                    WallTime to);

/// The kinds of entries of which a timeline is made.
const std::vector<JournalKind>& timeline_kinds();

}  // namespace weir
