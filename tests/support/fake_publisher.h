#pragma once

#include <optional>
#include <vector>

#include "backend/collaborators/cycle_publisher.h"

namespace weir::test {

/// Numbers every rendition's segments from 100 and keeps nothing.
class FakePublisher : public CyclePublisher {
 public:
  std::vector<long long> begin_cycle(long long, const HlsCycle& cycle) override {
    running = cycle;
    return std::vector<long long>(cycle.renditions.size(), 100);
  }
  void end_cycle(long long) override { running.reset(); }

  std::optional<HlsCycle> running;
};

}  // namespace weir::test
