#pragma once

#include <array>
#include <cstdint>
#include <unordered_map>

#include "backend/collaborators/journal.h"

namespace weir {

/// Counts what happened to each stream since the server's start. Deleted streams are forgotten.
class StreamCounters : public JournalReader {
 public:
  struct Counts {
    std::uint64_t launches = 0;
    /// Cycles that ended while the supervision went on, by their cause.
    std::array<std::uint64_t, cause_count> restarts{};
  };

  void read(const JournalEntry& entry) override;
  Counts of(long long stream_id) const;

 private:
  std::unordered_map<long long, Counts> counts_;
};

}  // namespace weir
