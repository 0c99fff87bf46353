#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>

#include "backend/platform/descriptor.h"
#include "backend/platform/failure.h"

namespace weir::test {

/// A UDP port of 127.0.0.1 that nothing is bound to at the moment.
inline int get_free_udp_port() {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socket.get(), generic, size) != 0 || ::getsockname(socket.get(), generic, &size) != 0) throw_errno("bind");
  return ntohs(address.sin_port);
}

}  // namespace weir::test
