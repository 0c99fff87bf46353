#include <fmt/core.h>

#include <array>
#include <nlohmann/json.hpp>

#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

namespace {

// What belongs to the stream and survives its profile.
constexpr std::array preserved_keys{"video.delogo", "video.cvdelogo.filename", "video.map", "audio.map",
                                    "subtitle.map"};
constexpr std::array replaced_sections{"video", "audio", "subtitle"};

}  // namespace

bool StreamConfig::apply_profile(const ProfileDescription* profile) {
  std::shared_ptr<const ProfileDescription> found;
  if (!profile) {
    const Value profile_id = get_json_conf("profile");
    if (profile_id.is_null()) return true;
    if (!profile_id.is_string()) throw AttributeError("the profile id is not text");
    const auto& digits = profile_id.get_ref<const std::string&>();
    const auto number = parse_integer(digits);
    if (!is_number(digits)) {
      set_error_msg(fmt::format("Invalid profile ID {}", digits));
      return false;
    }
    found = number ? siblings().profile_manager->get_profile(*number) : nullptr;
    if (!found) {
      set_error_msg(number ? siblings().profile_manager->get_error_msg()
                           : fmt::format("Invalid profile ID {}", digits));
      return false;
    }
    profile = found.get();
  }

  std::array<Value, preserved_keys.size()> copies;
  for (std::size_t i = 0; i < preserved_keys.size(); ++i) copies[i] = get_json_conf(preserved_keys[i]);
  for (const char* section : replaced_sections) del_json_conf(section);
  profile->copy_to(*this, {"id", "name", "version"});
  for (std::size_t i = 0; i < preserved_keys.size(); ++i) set_json_conf(preserved_keys[i], copies[i]);
  return true;
}

}  // namespace weir
