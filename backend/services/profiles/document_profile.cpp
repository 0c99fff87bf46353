#include "backend/services/profiles/document_profile.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "backend/base/members.h"

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
  for (const auto& [key, value] : document_.document().items())
    if (std::find(ignore_keys.begin(), ignore_keys.end(), key) == ignore_keys.end()) conf.set_json_conf(key, value);
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
