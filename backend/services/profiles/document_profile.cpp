#include "backend/services/profiles/document_profile.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

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
  Value encoders = Value::array();
  for (const Codec& codec : codecs) {
    const Value& given = document_.get_json_conf(codec.key);
    Value encoder = is_text(given) ? given : Value(codec.fallback);
    if (encoder != "none" && std::find(encoders.begin(), encoders.end(), encoder) == encoders.end())
      encoders.push_back(std::move(encoder));
  }
  return encoders;
}

}  // namespace weir
