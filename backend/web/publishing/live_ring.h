#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/clock.h"
#include "backend/web/live_body.h"

namespace weir {

/// A piece of a live output. It never changes once it is in a ring.
struct LiveChunk {
  std::string bytes;
  std::optional<std::size_t> start;  ///< the latest place in `bytes` at which a viewer may begin
  std::string prologue;              ///< what a viewer gets before it begins there
};

/// The latest chunks of a live output, shared by all who read them: bounded in bytes, and in time by what readers are
/// allowed to lag behind the latest start. The chunks from there on are kept for those who come, whatever their age.
class LiveRing {
 public:
  struct Limits {
    std::size_t bytes = 16 << 20;
    std::chrono::nanoseconds lag = std::chrono::seconds(10);
  };

  /// How far one reader has come.
  struct Position {
    std::uint64_t next = 0;  ///< the number of the chunk to read next
    bool begun = false;      ///< before that, chunks are skipped up to a start
    bool lost = false;       ///< the reader was too slow: its chunk is gone
  };

  explicit LiveRing(Limits limits) : limits_(limits) {}

  /// Appends a chunk. `watched`: somebody may be reading older ones.
  void push(LiveChunk chunk, TimePoint now, bool watched);
  /// Nobody begins at what was pushed so far.
  void forbid_starts() { first_start_ = end(); }

  /// Where a new reader begins: at the latest start, or at the next one to come.
  Position begin() const;
  /// The next chunks after the position, up to about `max_bytes`, and moves it on. Empty when there are none yet, and
  /// when the reader is lost.
  std::vector<LiveSlice> read(Position& position, std::size_t max_bytes) const;

  std::size_t bytes() const noexcept { return bytes_; }

 private:
  struct Entry {
    std::shared_ptr<const LiveChunk> chunk;
    TimePoint pushed;
  };

  std::uint64_t end() const { return first_ + entries_.size(); }
  void drop_oldest();

  Limits limits_;
  std::deque<Entry> entries_;
  std::uint64_t first_ = 0;         ///< the number of the oldest chunk
  std::uint64_t first_start_ = 0;   ///< the first chunk at which a new reader may begin
  std::uint64_t latest_start_ = 0;  ///< the latest chunk with a start
  std::size_t bytes_ = 0;
};

}  // namespace weir
