#pragma once

#include <functional>
#include <optional>
#include <string>

#include "backend/base/value.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/router.h"

namespace weir {

/// The profile store as the routes reach it. Calls that fail are null, empty or false and leave the reason.
struct ProfileAccess {
  std::function<Value()> list;
  std::function<Value(long long id)> read;
  std::function<std::optional<long long>(const Value& form)> add;
  std::function<bool(long long id, const Value& form)> change;
  std::function<bool(long long id)> remove;
  std::function<std::string(long long id)> path;  ///< the profile's file
  std::function<std::string()> error;
};

/// /api/profiles: the transcoding profiles that streams share.
class ProfileRoutes {
 public:
  /// The manager outlives the routes.
  ProfileRoutes(StreamManager& manager, ProfileAccess profiles) : manager_(manager), profiles_(std::move(profiles)) {}
  void add_to(Router& router);

 private:
  Async<Response> list();
  Async<Response> read(const std::string& id);
  Async<Response> add(const Request& request);
  Async<Response> change(const Request& request, const std::string& id);
  Async<Response> remove(const std::string& id);
  /// Throws `HttpError` with 404.
  Value find(const std::string& id);

  StreamManager& manager_;
  ProfileAccess profiles_;
};

}  // namespace weir
