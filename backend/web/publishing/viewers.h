#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
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
/// something of the stream lately. A viewer of an HTTP output is a connection. Shared by the web layer and the seats.
class Viewers : public std::enable_shared_from_this<Viewers> {
 public:
  explicit Viewers(ViewerLimits limits) : limits_(limits) {}

  /// A viewer of an HTTP output counts while its seat exists.
  class Seat {
   public:
    Seat(std::shared_ptr<Viewers> viewers, long long stream_id, std::string address);
    ~Seat();
    Seat(const Seat&) = delete;
    Seat& operator=(const Seat&) = delete;

   private:
    std::shared_ptr<Viewers> viewers_;
    long long stream_id_;
    std::string address_;
  };

  /// Counts the address as a viewer of the stream's HLS output for `timeout` from now on. False when a limit is reached
  /// and it is none yet.
  bool admit_hls(long long stream_id, const std::string& address, std::chrono::nanoseconds timeout);

  /// Null when a limit is reached.
  std::unique_ptr<Seat> admit_http(long long stream_id, const std::string& address);

  /// Forgets the viewers of HLS that have not asked for anything.
  void forget_gone();

 private:
  /// Which limit leaves no room for another viewer; empty when none does.
  std::string find_reached_limit(long long stream_id, const std::string& address) const;
  bool admits(long long stream_id, const std::string& address);
  void tell_refusal(long long stream_id, const std::string& limit);
  void count(long long stream_id, const std::string& address);
  void discount(long long stream_id, const std::string& address);

  ViewerLimits limits_;
  std::map<std::pair<long long, std::string>, TimePoint> hls_;  ///< until when it counts
  std::unordered_map<long long, std::size_t> by_stream_;
  std::unordered_map<std::string, std::size_t> by_address_;
  std::size_t total_ = 0;

  struct Refusals {
    TimePoint told;
    std::size_t since = 0;  ///< since they were told last
  };
  std::unordered_map<long long, Refusals> refusals_;  ///< by stream
};

}  // namespace weir
