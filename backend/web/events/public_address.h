#pragma once

#include <sys/socket.h>

namespace weir {

/// Whether the address belongs to the public internet: not to this machine, to a private or local network, nor to any
/// other range that is set aside. IPv4 addresses inside IPv6 ones count as what they are.
bool is_public_address(const sockaddr& address);

}  // namespace weir
