#include "backend/web/events/public_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace weir {

namespace {

struct V4Range {
  std::uint32_t begin;
  int bits;
};

// As IANA's registry of special addresses has them.
constexpr std::array<V4Range, 16> special_v4{{{0x00000000, 8},
                                              {0x0A000000, 8},
                                              {0x64400000, 10},
                                              {0x7F000000, 8},
                                              {0xA9FE0000, 16},
                                              {0xAC100000, 12},
                                              {0xC0000000, 24},
                                              {0xC0000200, 24},
                                              {0xC0586300, 24},
                                              {0xC0A80000, 16},
                                              {0xC6120000, 15},
                                              {0xC6336400, 24},
                                              {0xCB007100, 24},
                                              {0xE0000000, 4},
                                              {0xF0000000, 4},
                                              {0xFFFFFFFF, 32}}};

bool is_public_v4(std::uint32_t address) {
  return std::ranges::none_of(special_v4,
                              [&](V4Range range) { return (address ^ range.begin) >> (32 - range.bits) == 0; });
}

std::uint32_t read_v4(const std::uint8_t* bytes) {
  std::uint32_t address = 0;
  std::memcpy(&address, bytes, sizeof address);
  return ntohl(address);
}

// Of what is routed (2000::/3) all but tunnels and documentation.
bool is_public_v6(const in6_addr& address) {
  const std::uint8_t* bytes = address.s6_addr;
  static constexpr std::array<std::uint8_t, 12> translated{0x00, 0x64, 0xFF, 0x9B};
  if (IN6_IS_ADDR_V4MAPPED(&address)) return is_public_v4(read_v4(bytes + 12));
  if (std::equal(translated.begin(), translated.end(), bytes)) return is_public_v4(read_v4(bytes + 12));
  if (bytes[0] >> 5 != 1) return false;
  if (bytes[0] == 0x20 && bytes[1] == 0x02) return is_public_v4(read_v4(bytes + 2));
  const bool is_special = bytes[0] == 0x20 && bytes[1] == 0x01 && bytes[2] < 0x02;
  const bool is_documentation = bytes[0] == 0x20 && bytes[1] == 0x01 && bytes[2] == 0x0D && bytes[3] == 0xB8;
  return !is_special && !is_documentation;
}

}  // namespace

bool is_public_address(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof v4);
    return is_public_v4(ntohl(v4.sin_addr.s_addr));
  }
  if (address.sa_family != AF_INET6) return false;
  sockaddr_in6 v6{};
  std::memcpy(&v6, &address, sizeof v6);
  return is_public_v6(v6.sin6_addr);
}

}  // namespace weir
