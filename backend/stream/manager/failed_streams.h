#pragma once

#include <map>
#include <vector>

#include "backend/collaborators/journal.h"
#include "backend/platform/task.h"
#include "backend/stream/manager/stream_manager.h"

namespace weir {

/// Starts streams again whose supervision failed, after the time that their entry names. A stop, a start by somebody
/// else, or the deletion of the stream ends the wait.
class FailedStreams final : public JournalReader {
 public:
  /// The manager outlives this.
  explicit FailedStreams(StreamManager& manager) : manager_(manager) {}
  ~FailedStreams() override { stop(); }

  void read(const JournalEntry& entry) override;
  /// Begins the waits again that ended with the server before. `failed`: the failures that they followed.
  void resume(const std::vector<JournalEntry>& failed);
  /// Ends all waits, and the starts under way.
  void stop();

 private:
  Async<> start_later(long long stream_id, double seconds);
  void forget(long long stream_id);

  StreamManager& manager_;
  std::map<long long, Task> waits_;   ///< by stream
  std::map<long long, Task> starts_;  ///< those whose wait is over: the start's own entry must not end them
};

}  // namespace weir
