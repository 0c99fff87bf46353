#pragma once

#include <set>
#include <string>
#include <string_view>

namespace weir {

/// The address that a request comes from: that of the connection, or, as far as that is a trusted proxy's, the one that
/// the X-Forwarded-For header names. What trusted proxies did not write counts for nothing.
std::string find_client_address(const std::string& connection, std::string_view forwarded_for,
                                const std::set<std::string>& trusted_proxies);

/// A host without its port and, of an IPv6 address, its brackets: "::1" of "[::1]:80", also of "::1".
std::string_view strip_port(std::string_view host);

/// Whether a Host header names this machine's loopback address: "localhost:8080", "127.0.0.1", "[::1]:80". A page of
/// another site that had its name resolved to the loopback address has its own name there.
bool is_loopback_host(std::string_view host);

}  // namespace weir
