#include "backend/stream/manager/failed_streams.h"

#include <fmt/core.h>

#include "backend/platform/sleep.h"

namespace weir {

void FailedStreams::read(const JournalEntry& entry) {
  if (!entry.stream_id) return;
  switch (entry.kind) {
    case JournalKind::failed:
      forget(*entry.stream_id);
      waits_[*entry.stream_id] = spawn(fmt::format("retry of stream {}", *entry.stream_id),
                                       start_later(*entry.stream_id, entry.retry_seconds.value_or(0)));
      break;
    case JournalKind::started:
    case JournalKind::stopped:
    case JournalKind::deleted:
      forget(*entry.stream_id);
      break;
    default:
      break;
  }
}

void FailedStreams::resume(const std::vector<JournalEntry>& failed) {
  for (const JournalEntry& failure : failed) {
    const auto found = manager_.streams.find(failure.stream_id.value_or(-1));
    if (found != manager_.streams.end() && found->second->thread.dead()) found->second->tell_failed(failure.text);
  }
}

void FailedStreams::stop() {
  for (const auto* tasks : {&waits_, &starts_})
    for (const auto& [id, task] : *tasks) task.kill();
  waits_.clear();
  starts_.clear();
}

void FailedStreams::forget(long long stream_id) {
  const auto wait = waits_.find(stream_id);
  if (wait == waits_.end()) return;
  wait->second.kill();
  waits_.erase(wait);
}

Async<> FailedStreams::start_later(long long stream_id, double seconds) {
  co_await sleep_seconds(seconds);
  starts_[stream_id] = std::move(waits_[stream_id]);
  waits_.erase(stream_id);
  const auto found = manager_.streams.find(stream_id);
  if (found == manager_.streams.end()) co_return;
  const std::shared_ptr<Stream> stream = found->second;
  co_await stream->start(0, false, "the server, after its supervision failed");
}

}  // namespace weir
