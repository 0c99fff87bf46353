#include "backend/web/events/stream_counters.h"

namespace weir {

void StreamCounters::read(const JournalEntry& entry) {
  if (!entry.stream_id) return;
  switch (entry.kind) {
    case JournalKind::launched:
      ++counts_[*entry.stream_id].launches;
      break;
    case JournalKind::ended:
      if (entry.cause && entry.retry_seconds)
        ++counts_[*entry.stream_id].restarts[static_cast<std::size_t>(*entry.cause)];
      break;
    case JournalKind::deleted:
      counts_.erase(*entry.stream_id);
      break;
    default:
      break;
  }
}

StreamCounters::Counts StreamCounters::of(long long stream_id) const {
  const auto found = counts_.find(stream_id);
  return found == counts_.end() ? Counts() : found->second;
}

}  // namespace weir
