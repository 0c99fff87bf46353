#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/jsonconf.h"

namespace weir {

/// A transcoding profile, or the profile side of a stream's document.
class ProfileDescription {
 public:
  virtual ~ProfileDescription() = default;
  /// Writes the profile's members into the document, in their order, leaving out the listed ones.
  virtual void copy_to(JsonConf& conf, const std::vector<std::string>& ignore_keys) const = 0;
  /// The hardware acceleration in use: a text, or null for none.
  virtual Value get_hwaccel() const = 0;
  /// The encoders in use: a list of texts, "copy" among them.
  virtual Value get_encoders() const = 0;
};

/// The registry of profiles.
class ProfileManager {
 public:
  virtual ~ProfileManager() = default;
  /// The profile with the id, or null with the reason as error message.
  virtual std::shared_ptr<const ProfileDescription> get_profile(long long id) = 0;
  virtual std::string get_error_msg() const = 0;
};

}  // namespace weir
