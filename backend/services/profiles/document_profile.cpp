#include "backend/services/profiles/document_profile.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "backend/base/members.h"
#include "backend/collaborators/version.h"
#include "backend/platform/failure.h"

namespace weir {

namespace {

bool is_text(const Value& value) { return value.is_string() && is_set(value); }

/// A section's codec, and what is used when it names none.
struct Codec {
  const char* key;
  const char* fallback;
};
constexpr std::array codecs{Codec{"video.codec", "libx264"}, Codec{"audio.codec", "aac"},
                            Codec{"subtitle.codec", "none"}};

}  // namespace

void DocumentProfile::copy_to(JsonConf& conf, const std::vector<std::string>& ignore_keys) const {
  const auto copy = [&](std::string_view key, const Value& value) {
    if (!conf.set_json_conf(key, value)) throw ValueError(conf.get_error_msg());
  };
  for (const auto& [key, value] : document_.document().items())
    if (std::ranges::find(ignore_keys, key) == ignore_keys.end()) copy(key, value);
  // The section that was replaced had one; the memory monitor of a stream with a logo fails without it.
  if (conf.get_json_conf(logo_queue_size_key).is_null()) copy(logo_queue_size_key, "");
}

Value DocumentProfile::get_hwaccel() const {
  const Value& hwaccel = document_.get_json_conf("video.hwaccel");
  return is_text(hwaccel) ? hwaccel : Value();
}

Value DocumentProfile::get_encoders() const {
  std::vector<std::string_view> encoders;
  for (const Codec& codec : codecs) {
    const Value& given = document_.get_json_conf(codec.key);
    std::string_view encoder = codec.fallback;
    if (is_text(given)) encoder = given.get_ref<const std::string&>();
    if (encoder != "none" && std::ranges::find(encoders, encoder) == encoders.end()) encoders.push_back(encoder);
  }
  return encoders;
}

}  // namespace weir
