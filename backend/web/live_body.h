#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "backend/platform/async.h"

namespace weir {

/// Bytes and what keeps them alive.
struct LiveSlice {
  std::shared_ptr<const void> owner;
  std::string_view bytes;
};

/// The body of a response that goes on for as long as its source does. It is destroyed once the client has left.
class LiveBody {
 public:
  virtual ~LiveBody() = default;
  /// Waits for the bytes that follow; empty at the end.
  virtual Async<std::vector<LiveSlice>> next() = 0;
  /// How much of it the system may hold for a client that does not read; 0: as it likes.
  virtual int send_buffer_bytes() const { return 0; }
};

}  // namespace weir
