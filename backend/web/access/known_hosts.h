#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backend/web/request.h"

namespace weir {

/// Under which names the server is asked, and from whose pages. A page of another site that has its own name resolved
/// to the server's address (DNS rebinding) sends its own name.
class KnownHosts {
 public:
  /// `public_urls`: "https://weir.example", "http://[2001:db8::1]:8080".
  explicit KnownHosts(const std::vector<std::string>& public_urls);

  /// Whether the Host header is the address that the client connected to, a name of this machine, of its loopback
  /// address, or of a public URL. Ports don't matter.
  bool has(const Request& request) const;
  /// Whether browsers come through TLS under the host's name, because a public URL says so.
  bool is_secure(std::string_view host) const;
  /// Whether a browser sent the request for a page of another site (Sec-Fetch-Site, else Origin).
  bool is_from_other_site(const Request& request) const;

 private:
  struct PublicUrl {
    std::string scheme;
    std::string authority;
  };

  std::vector<PublicUrl> public_urls_;
  std::vector<std::string> machine_names_;
};

}  // namespace weir
