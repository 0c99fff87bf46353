#pragma once

#include <chrono>
#include <cstddef>

namespace weir {

/// What one client can ask of the server's memory and time.
struct HttpLimits {
  std::size_t header_bytes = 16 * 1024;
  std::size_t body_bytes = 1 << 20;
  std::size_t connections = 1024;
  std::chrono::seconds idle{60};   ///< without a request
  std::chrono::seconds read{30};   ///< for a request to arrive whole, from its first byte on
  std::chrono::seconds write{30};  ///< for each `chunk_bytes` of an answer to be taken
  std::size_t chunk_bytes = 256 * 1024;
};

}  // namespace weir
