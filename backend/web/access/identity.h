#pragma once

#include <string>

#include "backend/web/access/role.h"

namespace weir {

/// Who sends a request.
struct Identity {
  enum class Proof {
    none,
    loopback,  ///< asks from this machine, while there are no users
    session,
    token,
  };

  Role role = Role::nobody;
  std::string name = {};  ///< of the user or token; empty without one
  Proof proof = Proof::none;
  bool wrong_token = false;  ///< sent a token that does not exist or has expired
};

}  // namespace weir
