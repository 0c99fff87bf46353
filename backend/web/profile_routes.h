#pragma once

#include <string>

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"
#include "backend/platform/semaphore.h"
#include "backend/web/router.h"
#include "backend/web/server_stream_manager.h"

namespace weir {

/// /api/profiles: the transcoding profiles that streams share.
class ProfileRoutes {
 public:
  /// All outlive the routes. `changes` is held while documents or profiles change.
  ProfileRoutes(ServerStreamManager& manager, ProfileRegistry& profiles, Semaphore& changes)
      : manager_(manager), profiles_(profiles), changes_(changes) {}
  void add_to(Router& router);

 private:
  Async<Response> list(Role role);
  Async<Response> read(std::string id, Role role);
  Async<Response> add(Value form, std::string by);
  Async<Response> change(std::string id, Value form, std::string by);
  Async<Response> remove(std::string id, std::string by);

  /// The id of a profile that exists. Throws `HttpError` with 404.
  long long find(const std::string& id);
  std::vector<std::shared_ptr<Stream>> users_of(long long id) const;
  /// Throws `HttpError` with 409 when a stream needs the profile, one that is not loaded at the moment included.
  Async<> refuse_used(long long id);
  Async<> store(std::shared_ptr<ProfileDraft> draft);

  ServerStreamManager& manager_;
  ProfileRegistry& profiles_;
  Semaphore& changes_;
};

}  // namespace weir
