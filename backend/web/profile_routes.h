#pragma once

#include <string>

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"
#include "backend/platform/semaphore.h"
#include "backend/web/router.h"
#include "backend/web/schema/form_findings.h"
#include "backend/web/server_stream_manager.h"
#include "backend/web/stream_routes.h"

namespace weir {

/// /api/profiles: the transcoding profiles that streams share. A change makes a draft, which takes effect when it is
/// applied.
class ProfileRoutes {
 public:
  /// All outlive the routes. `changes` is held while documents or profiles change.
  ProfileRoutes(ServerStreamManager& manager, ProfileRegistry& profiles, StreamRoutes& streams, Semaphore& changes)
      : manager_(manager), profiles_(profiles), streams_(streams), changes_(changes) {}
  void add_to(Router& router);

 private:
  struct Reload;
  static Reload read_reload(const Request& request);

  Async<Response> list(Role role);
  Async<Response> read(std::string id, Role role);
  Async<Response> add(Value form, std::string by);
  Async<Response> change(std::string id, Value form, std::string by);
  Async<Response> remove(std::string id, std::string by);
  /// What `add` and `change` would answer; a change is tried on the profile's streams, too.
  Async<Response> preview_new(Value form);
  Async<Response> preview_change(std::string id, Value form);
  Async<Response> apply(std::string id, Reload reload, std::string by);
  Async<Response> drop_draft(std::string id, std::string by);

  /// The id of a profile that exists. Throws `HttpError` with 404.
  long long find(const std::string& id);
  std::vector<std::shared_ptr<Stream>> users_of(long long id) const;
  /// The profile as the API shows it: with "users", the ids of its streams.
  Value describe(Value record) const;
  /// Throws `HttpError` with 409 when a stream needs the profile, one that is not loaded at the moment included.
  Async<> refuse_used(long long id);
  Async<> store(std::shared_ptr<ProfileDraft> draft);
  /// Throws `FormError` for none.
  std::shared_ptr<ProfileDraft> accept(std::shared_ptr<ProfileDraft> draft) const;
  /// Throw `FormError` for what makes no profile.
  std::shared_ptr<ProfileDraft> make_new(const Value& form, FormFindings& warnings) const;
  std::shared_ptr<ProfileDraft> make_changed(long long id, const Value& form, FormFindings& warnings) const;
  /// Makes the draft that is kept the profile.
  Async<> publish(long long id, std::string by);
  /// Throws `FormError`, whose findings name the streams.
  Async<> try_on_streams(std::shared_ptr<ProfileDraft> draft);
  /// What applying the profile made of a stream: {"id", "ok", "changed", "pending" or "error"}.
  Async<Value> reload_stream(std::shared_ptr<Stream> stream, std::string by);

  ServerStreamManager& manager_;
  ProfileRegistry& profiles_;
  StreamRoutes& streams_;
  Semaphore& changes_;
};

}  // namespace weir
