#pragma once

#include <string>

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"
#include "backend/platform/semaphore.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/router.h"

namespace weir {

/// /api/profiles: the transcoding profiles that streams share.
class ProfileRoutes {
 public:
  /// All outlive the routes. `changes` is held while documents or profiles change.
  ProfileRoutes(StreamManager& manager, ProfileRegistry& profiles, Semaphore& changes)
      : manager_(manager), profiles_(profiles), changes_(changes) {}
  void add_to(Router& router);

 private:
  Async<Response> list();
  Async<Response> read(std::string id);
  Async<Response> add(Value form);
  Async<Response> change(std::string id, Value form);
  Async<Response> remove(std::string id);

  /// The id of a profile that exists. Throws `HttpError` with 404.
  long long find(const std::string& id);
  std::vector<std::shared_ptr<Stream>> users_of(long long id) const;
  Async<> store(std::shared_ptr<const ProfileDraft> draft);

  StreamManager& manager_;
  ProfileRegistry& profiles_;
  Semaphore& changes_;
};

}  // namespace weir
