#pragma once

#include <functional>
#include <string>

#include "backend/platform/helper_thread.h"
#include "backend/web/access/live_users.h"
#include "backend/web/access/password_checker.h"
#include "backend/web/router.h"

namespace weir {

/// /api/users and /api/tokens: who may use the server. For the admin.
class UserRoutes {
 public:
  /// Both outlive the routes.
  UserRoutes(LiveUsers& users, PasswordChecker& passwords) : users_(users), passwords_(passwords) {}
  void add_to(Router& router);

 private:
  using Change = std::function<void(UserList&)>;

  Response list_users();
  Response list_tokens();
  Async<Response> add_user(Value form, std::string by);
  Async<Response> change_user(std::string name, Value form, std::string by);
  Async<Response> add_token(Value form, std::string by);
  Async<Response> remove(std::string what, std::string name, Change change, std::string by);

  /// Throws `HttpError` with 400 for a password that can't be one, with 429 when too many wait.
  Async<std::string> hash_password_of(Value form);
  /// Throws `HttpError` with 409 for what the list refuses.
  Async<> apply(Change change);

  LiveUsers& users_;
  PasswordChecker& passwords_;
  HelperThread disk_;
};

}  // namespace weir
