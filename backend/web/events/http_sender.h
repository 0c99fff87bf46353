#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backend/platform/async.h"

namespace weir {

/// Sends requests to other servers on the current loop: libcurl does the work, names are looked up on threads of its
/// own. TLS certificates are checked, redirects are not followed, a request takes at most 10 s, and of an answer's body
/// nothing is kept.
class HttpSender {
 public:
  /// How a request went: a status, or else why there is none.
  struct Answer {
    int status = 0;
    std::string error;
    bool refused = false;  ///< the receiver has an address that is not allowed
  };

  /// `private_addresses`: also addresses that are not public, see `is_public_address`. They are checked when a
  /// connection is made, whatever a name meant before.
  explicit HttpSender(bool private_addresses);
  ~HttpSender();

  /// Posts JSON. `headers` are whole lines. Sender and tasks that wait in this may end in any order.
  Async<Answer> post(std::string url, std::vector<std::string> headers, std::shared_ptr<const std::string> body);

 private:
  class Transfer;
  class Multi;

  const bool private_addresses_;
  std::shared_ptr<Multi> multi_;  ///< since the first request; shared with the transfers
};

}  // namespace weir
