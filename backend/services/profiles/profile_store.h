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

/// The profiles, one JSON file "<id>.conf" each in one directory. Operations that fail are false or empty and leave the
/// reason as error message. A profile that is handed out stays as it was when it is changed or removed later.
class ProfileStore : public ProfileManager, public Error {
 public:
  explicit ProfileStore(std::string directory);

  /// Reads the directory. Where it does not exist it is created and filled with the shipped profiles. A file that is
  /// no profile is logged and left alone. Throws `std::system_error` when the directory can't be used.
  void load();

  std::shared_ptr<const ProfileDescription> get_profile(long long id) override;
  std::string get_error_msg() const override { return Error::get_error_msg(); }

  /// All profiles' documents in order of their ids, each with its "id" first.
  Value list() const;
  /// The document with its "id"; null when there is none.
  Value read(long long id);
  /// Makes a profile of a form (dotted keys and values) and returns its id.
  std::optional<long long> add(const Value& form);
  /// Applies a form to the profile; a rejected form leaves it as it was.
  bool change(long long id, const Value& form);
  bool remove(long long id);
  /// The file of a profile.
  std::string path(long long id) const;

  std::string get_class_name() const override { return "Profiles"; }

 private:
  struct Stored;

  void install_shipped() const;
  void load_file(const std::string& name);
  std::shared_ptr<Stored> find(long long id);
  bool store(long long id, const std::shared_ptr<Stored>& profile);

  const std::string directory_;
  std::map<long long, std::shared_ptr<Stored>> profiles_;
  long long next_id_ = 1;
};

}  // namespace weir
