#pragma once

#include <set>
#include <string>

#include "backend/web/access/access.h"
#include "backend/web/access/login_attempts.h"
#include "backend/web/access/password_checker.h"
#include "backend/web/router.h"

namespace weir {

/// /api/login, /api/logout and /api/me.
class AccessRoutes {
 public:
  /// Both outlive the routes.
  AccessRoutes(Access& access, PasswordChecker& passwords) : access_(access), passwords_(passwords) {}
  void add_to(Router& router);

 private:
  /// What a login needs of its request.
  struct Login {
    std::string name;
    std::string password;
    std::string address;
    bool secure;  ///< the browser comes through TLS
  };

  Login read_login(const Request& request) const;
  bool is_secure(const Request& request) const;
  Async<Response> login(Login login);
  Async<Response> try_login(Login login);
  Response refuse(const Login& login);
  Response logout(const Request& request);
  Response me(const Request& request);

  Access& access_;
  LoginAttempts attempts_;
  PasswordChecker& passwords_;
  std::set<std::string> trying_;  ///< the networks of logins under way: one of each
};

}  // namespace weir
