#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>

#include "backend/platform/clock.h"

namespace weir {

/// How many viewers may watch at once; 0 is no limit.
struct ViewerLimits {
  std::size_t total = 0;
  std::size_t per_stream = 0;
  std::size_t per_address = 0;  ///< of all streams together
};

/// Who watches what, for the limits. A viewer of HLS has no connection of its own: it is an address that asked for
/// something of the stream lately. A viewer of an HTTP output is a connection.
class Viewers {
 public:
  explicit Viewers(ViewerLimits limits = {}) : limits_(limits) {}

  /// Counts the address as a viewer of the stream's HLS output for `timeout` from now on. False when a limit is reached
  /// and it is none yet.
  bool admit_hls(long long stream_id, const std::string& address, std::chrono::nanoseconds timeout);

  /// Counts a connection, until `leave_http`. False when a limit is reached.
  bool admit_http(long long stream_id, const std::string& address);
  void leave_http(long long stream_id, const std::string& address);

  /// Forgets the viewers of HLS that have not asked for anything.
  void forget_gone();

 private:
  bool has_room(long long stream_id, const std::string& address) const;
  void count(long long stream_id, const std::string& address);
  void discount(long long stream_id, const std::string& address);

  ViewerLimits limits_;
  std::map<std::pair<long long, std::string>, TimePoint> hls_;  ///< until when it counts
  std::unordered_map<long long, std::size_t> by_stream_;
  std::unordered_map<std::string, std::size_t> by_address_;
  std::size_t total_ = 0;
};

}  // namespace weir
