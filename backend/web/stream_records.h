#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "backend/stream/runtime/stream.h"

namespace weir {

/// The record of a stream as the web layer answers it, passwords masked. One whose record cannot be made shows as
/// "id", "label", "status" and "error", so that it hides no other. `host`: see `StreamConfig::get_output_urls`.
Value stream_record(const Stream& stream, const std::string& host);

/// The same records as JSON, for lists of many streams. Of running streams the text is kept that only a change of the
/// document or another cycle can change, and filled in with the figures of the moment.
class StreamRecords {
 public:
  static constexpr std::size_t live_members = 7;

  /// What stands before, between and behind the values of the live members.
  using Parts = std::array<std::string, live_members + 1>;

  void append(std::string& text, const Stream& stream, const std::string& host);
  void forget(long long stream_id) { kept_.erase(stream_id); }

 private:
  struct Kept {
    std::uint64_t revision = 0;
    std::string host;
    Parts parts;
  };

  std::unordered_map<long long, Kept> kept_;  ///< by stream id
};

}  // namespace weir
