#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "backend/base/value.h"
#include "backend/collaborators/error.h"
#include "backend/collaborators/profile.h"
#include "backend/services/profiles/document_profile.h"

namespace weir {

/// The profiles, one JSON file "<id>.conf" each in one directory, and their drafts, "<id>.draft". A profile that is
/// handed out stays as it was when it is changed or removed later.
class ProfileStore : public ProfileRegistry, public Error {
 public:
  explicit ProfileStore(std::string directory);

  /// Reads the directory. Where it does not exist it is created and filled with the shipped profiles. A file that is
  /// no profile is logged and left alone. Throws `std::system_error` when the directory can't be used.
  void load();

  std::shared_ptr<const ProfileDescription> get_profile(long long id) override;
  std::string get_error_msg() const override { return Error::get_error_msg(); }

  Value list() const override;
  Value read(long long id) override;
  std::shared_ptr<ProfileDraft> draft_new(const Value& form) override;
  std::shared_ptr<ProfileDraft> draft_change(long long id, const Value& form) override;
  std::shared_ptr<ProfileDraft> draft_import(long long id, const Value& document) override;
  bool keep(std::shared_ptr<ProfileDraft> draft) override;
  std::shared_ptr<ProfileDraft> kept_draft(long long id) override;
  std::shared_ptr<ProfileDraft> stored(long long id) override;
  bool drop_draft(long long id) override;
  bool store(std::shared_ptr<ProfileDraft> draft) override;
  bool remove(long long id) override;
  std::string path(long long id) const override;
  std::string draft_path(long long id) const override;

  std::string get_class_name() const override { return "Profiles"; }

 private:
  class Stored;

  void install_shipped() const;
  void load_file(const std::string& name);
  void load_draft(long long id);
  std::shared_ptr<Stored> find(long long id);
  bool apply(Stored& profile, const Value& form);
  bool refuse_taken_name(const Stored& profile);
  std::shared_ptr<Stored> write(const ProfileDraft& draft, const std::string& to);
  Value make_record(long long id, const Stored& profile) const;

  const std::string directory_;
  std::map<long long, std::shared_ptr<Stored>> profiles_;
  std::map<long long, std::shared_ptr<Stored>> drafts_;
  long long next_id_ = 1;
};

}  // namespace weir
