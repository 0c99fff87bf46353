#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/web/access/known_hosts.h"
#include "backend/web/access/live_users.h"
#include "backend/web/access/sessions.h"
#include "backend/web/request.h"
#include "backend/web/response.h"

namespace weir {

struct AccessSettings {
  std::string data = {};                      ///< the directory of the users file; empty: there are no users
  bool open_to_network = false;               ///< other machines reach the server: without users nobody may
  std::vector<std::string> public_urls = {};  ///< see `KnownHosts`
};

/// Finds out who sends a request. What they may do is the routes' matter, see `RouteRules`.
///
/// Without users whoever asks from this machine is the admin. Published streams are open to everybody.
class Access {
 public:
  /// Throws as `LiveUsers`.
  explicit Access(AccessSettings settings);

  /// Completes the request's `identity` and `from_other_site`. Throws `HttpError` with 403 for one that comes under a
  /// name that is not the server's.
  void examine(Request& request);
  /// Whether an examined request would be taken for the same person's with the same role now.
  bool still_knows(Request request);

  LiveUsers& users() noexcept { return users_; }
  Sessions& sessions() noexcept { return sessions_; }
  const KnownHosts& hosts() const noexcept { return hosts_; }
  /// Whether there is nobody who could log in, though somebody has to.
  bool lacks_users() { return settings_.open_to_network && users_.get().users.empty(); }

 private:
  Identity identify(const Request& request);

  AccessSettings settings_;
  LiveUsers users_;
  KnownHosts hosts_;
  Sessions sessions_;
};

/// Whether the request is for /healthz or /readyz, which are open to everybody.
bool asks_for_state(const Request& request);
/// The secret of the request's session; empty when it has none.
std::string find_session_cookie(const Request& request);

}  // namespace weir
