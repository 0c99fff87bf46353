#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string_view>
#include <vector>

#include "backend/web/publishing/ts_packet.h"

namespace weir::test {

/// The packets of a transport stream, which has to be whole.
inline std::vector<TsPacket> packets_of(std::string_view bytes) {
  std::vector<TsPacket> packets;
  for (; bytes.size() >= TsPacket::size; bytes.remove_prefix(TsPacket::size)) {
    packets.emplace_back(bytes);
    EXPECT_EQ(bytes.front(), TsPacket::sync_byte);
  }
  EXPECT_TRUE(bytes.empty());
  return packets;
}

inline bool is_discontinuous(const TsPacket& packet) { return packet.has_flags() && (packet.text()[5] & 0x80); }

/// What a demuxer counts.
inline int counter_errors(const std::vector<TsPacket>& packets) {
  std::map<int, int> latest;
  int errors = 0;
  for (const TsPacket& packet : packets) {
    const auto known = latest.find(packet.pid());
    if (known != latest.end() && packet.pid() != TsPacket::null_pid)
      errors += packet.continuity() != (known->second + (packet.has_payload() ? 1 : 0)) % 16;
    latest[packet.pid()] = packet.continuity();
  }
  return errors;
}

}  // namespace weir::test
