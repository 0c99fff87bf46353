#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/jsonconf.h"

namespace weir {

/// The members of a stream's document that a profile replaces, and those in them that stay the stream's own.
inline constexpr std::array profile_sections{"video", "audio", "subtitle"};
inline constexpr std::array kept_from_profile{"video.delogo", "video.cvdelogo.filename", "video.map", "audio.map",
                                              "subtitle.map"};

/// A transcoding profile, or the profile side of a stream's document.
class ProfileDescription {
 public:
  virtual ~ProfileDescription() = default;
  /// Writes the profile's members into the document, in their order, leaving out the listed ones. Throws `ValueError`
  /// when the document has no place for one.
  virtual void copy_to(JsonConf& conf, const std::vector<std::string>& ignore_keys) const = 0;
  /// The hardware acceleration in use: a text, or null for none.
  virtual Value get_hwaccel() const = 0;
  /// The encoders in use: a list of texts, "copy" among them.
  virtual Value get_encoders() const = 0;
};

/// The profiles as the streams see them.
class ProfileManager {
 public:
  virtual ~ProfileManager() = default;
  /// The profile with the id, or null with the reason as error message.
  virtual std::shared_ptr<const ProfileDescription> get_profile(long long id) = 0;
  virtual std::string get_error_msg() const = 0;
};

/// A profile that a form made, checked and not stored yet.
class ProfileDraft {
 public:
  virtual ~ProfileDraft() = default;
  virtual long long id() const = 0;
  virtual const ProfileDescription& description() const = 0;
};

/// The profiles as the web layer manages them. Operations that fail are null or false and leave the reason.
class ProfileRegistry : public ProfileManager {
 public:
  /// All profiles' documents in order of their ids, each with its "id" first.
  virtual Value list() const = 0;
  /// The document with its "id"; null when there is none.
  virtual Value read(long long id) = 0;
  /// A new profile of a form (dotted keys and values). Null when the form makes no profile.
  virtual std::shared_ptr<ProfileDraft> draft_new(const Value& form) = 0;
  /// The profile with a form applied. The stored one stays as it is.
  virtual std::shared_ptr<ProfileDraft> draft_change(long long id, const Value& form) = 0;
  /// Writes the draft's file; from then on it is the profile. False when it can't be written.
  virtual bool store(std::shared_ptr<ProfileDraft> draft) = 0;
  /// False when the file can't be deleted.
  virtual bool remove(long long id) = 0;
  /// The file of a profile.
  virtual std::string path(long long id) const = 0;
};

}  // namespace weir
