#pragma once

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"

namespace weir {

/// A document seen as a profile: a stored profile, or the profile side of a stream. The document outlives it.
class DocumentProfile : public ProfileDescription {
 public:
  explicit DocumentProfile(const JsonConf& document) noexcept : document_(document) {}
  void copy_to(JsonConf& conf, const std::vector<std::string>& ignore_keys) const override;
  /// "video.hwaccel" where it is a text that is not empty.
  Value get_hwaccel() const override;
  /// The codecs of video, audio and subtitle, given or by default, each once and without "none".
  Value get_encoders() const override;

 private:
  const JsonConf& document_;
};

}  // namespace weir
