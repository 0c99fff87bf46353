#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "backend/collaborators/profile.h"
#include "backend/stream/config/stream_config.h"
#include "backend/web/api/staged_files.h"
#include "backend/web/events/webhooks.h"
#include "backend/web/schema/form_findings.h"
#include "backend/web/server_stream_manager.h"
#include "backend/web/stream_routes.h"

namespace weir {

/// Takes over the profiles, streams and webhooks of an export under their ids: first `check`, then `apply` unless there
/// are findings. Nothing of them may change meanwhile but the streams' states. What exists under an id is replaced, and
/// keeps running as it is; new streams are stopped. With `replaces` everything else is removed.
class Import {
 public:
  static constexpr int format = 1;

  struct Targets {
    ServerStreamManager& manager;
    ProfileRegistry& profiles;
    StreamRoutes& streams;
    Webhooks& webhooks;
  };

  /// The targets outlive this.
  Import(Targets targets, bool replaces);
  /// Takes back what an `apply` that was killed has done.
  ~Import() { roll_back(); }
  Import(const Import&) = delete;
  Import& operator=(const Import&) = delete;

  /// Looks at the content, which is used up.
  Async<> check(std::shared_ptr<Value> content);
  /// What is wrong; the first 500.
  const FormFindings& findings() const noexcept { return findings_; }
  /// What `apply` changes: the ids that are added, changed, removed and unchanged.
  Value describe() const;
  /// Takes back what a server that was killed has left of an import; before any document is read. Throws
  /// `std::system_error` or `ValueError` when it can't.
  static void recover();

  /// All or nothing, also when the server is killed: throws `HttpError` with 500 when something can't be saved, and
  /// everything is as it was; the message names what could not be taken back.
  Async<> apply(std::string by);

 private:
  enum class Kind { added, changed, removed, unchanged };
  struct Undo {
    std::string name;
    std::function<void()> run;
  };

  void check_outline(const Value& content);
  void check_profile(const std::string& key, Value document);
  void check_profile_names();
  Async<> check_stream(std::string key, Value document);
  Async<> check_users_of_profiles();
  void check_webhooks(const Value& settings);
  std::shared_ptr<const ProfileDraft> find_profile(Value& document) const;
  void compare(long long id, const StreamConfig* present, Value document);
  void find_removed();
  void refuse(std::string key, std::string message);
  void refuse(const std::string& key, const FormFindings& findings);

  Async<> stage();
  std::set<std::string> list_files() const;
  Async<> put_all();
  void put_profile(const std::shared_ptr<ProfileDraft>& draft);
  void put_stream(long long id, Value document);
  void remove_stream(long long id);
  void remove_profile(long long id);
  void replace_webhooks();
  Async<> finish(std::string by);
  std::string roll_back();
  Async<> clean_up_taken_back() const;

  const Targets to_;
  const bool replaces_;
  FormFindings findings_;
  std::set<long long> refused_profiles_;
  std::map<long long, std::shared_ptr<ProfileDraft>> profiles_;  ///< those that are added or changed
  std::map<long long, Value> streams_;                           ///< the same
  Webhooks::Stored webhooks_;                                    ///< all of them
  std::map<long long, Kind> profile_changes_;
  std::map<long long, Kind> stream_changes_;
  std::map<std::string, Kind> webhook_changes_;
  StagedFiles files_;
  std::vector<Undo> undo_;
};

}  // namespace weir
