#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backend/stream/runtime/stream.h"
#include "tests/support/fake_siblings.h"
#include "tests/support/time_zone.h"

namespace weir::test {

/// A day in the life of a stream, from midnight on the movable clock, with a scripted transcoder. Three inputs; a
/// restart at 04:00 and a look for better inputs every half hour are in its timetables.
class Day {
 public:
  Day();
  ~Day();

  /// Lives it once.
  void live();

  FakeSiblings world;
  /// What happened, in order: "HH:MM:SS", then "status" with its word, "launch" with the input, "kill" with the process
  /// id, or a message as it was logged. Of two statuses in one instant the second is seen.
  std::vector<std::string> journal;

 private:
  void pass_quietly(int minutes);
  void pass(int minutes, std::string_view speed = "1.00x");
  void lose_first_input();
  void crash_three_times();

  void note(std::string_view what);
  void observe();

  const TimeZone utc_{"UTC0"};
  std::shared_ptr<StreamConfig> conf_;
  std::shared_ptr<Stream> stream_;
  std::string last_status_;
  std::vector<std::size_t> signals_seen_;
  long long media_seconds_ = 0;
};

}  // namespace weir::test
