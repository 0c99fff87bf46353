#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

#include "backend/base/histogram.h"

namespace weir {

/// What a server answered since its start.
struct HttpFigures {
  std::map<int, std::uint64_t> responses;  ///< by status
  /// From the request's last byte until its answer was made; sending it depends on the client. Of a live response until
  /// its head. Without requests that could not be read.
  DurationHistogram durations;
  std::size_t connections = 0;  ///< open now

  void count(int status) { ++responses[status]; }
  void count(int status, std::chrono::nanoseconds duration) {
    count(status);
    durations.add(duration);
  }
};

}  // namespace weir
