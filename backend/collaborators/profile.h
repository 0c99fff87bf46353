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
  virtual std::string name() const = 0;
  /// The document, without "id".
  virtual const Value& content() const = 0;
  virtual const ProfileDescription& description() const = 0;
};

/// The profiles as the web layer manages them. What a change makes of a profile can be kept as its draft, until it is
/// stored. Names are unique. Operations that fail are null or false and leave the reason.
class ProfileRegistry : public ProfileManager {
 public:
  /// All profiles' documents in order of their ids, each with its "id" first, and with the document of the draft that
  /// is kept as "draft".
  virtual Value list() const = 0;
  /// One of them; null when there is none.
  virtual Value read(long long id) = 0;
  /// A new profile of a form (dotted keys and values). Null when the form makes no profile.
  virtual std::shared_ptr<ProfileDraft> draft_new(const Value& form) = 0;
  /// The profile, or its draft where one is kept, with a form applied. The stored ones stay as they are.
  virtual std::shared_ptr<ProfileDraft> draft_change(long long id, const Value& form) = 0;
  /// A profile of a document, whether there is one with the id or not. Its name is not compared with others.
  virtual std::shared_ptr<ProfileDraft> draft_import(long long id, const Value& document) = 0;
  /// Keeps the draft in a file of its own. False when it can't be written.
  virtual bool keep(std::shared_ptr<ProfileDraft> draft) = 0;
  /// The draft that is kept; null when there is none.
  virtual std::shared_ptr<ProfileDraft> kept_draft(long long id) = 0;
  /// The profile as it is stored, for `store` to bring it back; null when there is none.
  virtual std::shared_ptr<ProfileDraft> stored(long long id) = 0;
  /// Drops the draft that is kept, if there is one. False when its file can't be deleted.
  virtual bool drop_draft(long long id) = 0;
  /// Writes the profile's file; from then on the draft is the profile. False when it can't be written.
  virtual bool store(std::shared_ptr<ProfileDraft> draft) = 0;
  /// The draft that is kept goes with it. False when a file can't be deleted.
  virtual bool remove(long long id) = 0;
  /// The file of a profile, and that of its draft.
  virtual std::string path(long long id) const = 0;
  virtual std::string draft_path(long long id) const = 0;
};

}  // namespace weir
