#include "backend/web/access/password_checker.h"

#include "backend/web/access/secrets.h"

namespace weir {

namespace {

// Shared with the thread: whoever asked may have gone.
struct Check {
  std::string hash;
  std::string password;
  bool fits = false;
};

/// Gives a place back at the end of its scope.
struct Place {
  std::atomic<int>& waiting;
  ~Place() { --waiting; }
};

}  // namespace

Async<bool> PasswordChecker::check(std::string hash, std::string password) {
  ++*waiting_;
  const auto check = std::make_shared<Check>(std::move(hash), std::move(password));
  co_await thread_.run([check, waiting = waiting_] {
    const Place place{*waiting};
    // Made in the first check, whoever is asked for.
    const std::string& unusable = unusable_password_hash();
    check->fits = verify_password(check->hash.empty() ? unusable : check->hash, check->password);
  });
  co_return check->fits;
}

Async<std::string> PasswordChecker::hash(std::string password) {
  ++*waiting_;
  const auto hash = std::make_shared<std::string>();
  co_await thread_.run([hash, password = std::move(password), waiting = waiting_] {
    const Place place{*waiting};
    *hash = hash_password(password);
  });
  co_return *hash;
}

}  // namespace weir
