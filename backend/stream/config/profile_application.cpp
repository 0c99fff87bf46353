#include <fmt/core.h>

#include <array>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
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
  if (profile) {
    copy_profile(*profile);
    return true;
  }
  const Value profile_id = get_json_conf("profile");
  if (profile_id.is_null()) return true;
  const std::shared_ptr<const ProfileDescription> found = find_profile(profile_id);
  if (found) copy_profile(*found);
  return found != nullptr;
}

// The profile of the registry; null with the reason.
std::shared_ptr<const ProfileDescription> StreamConfig::find_profile(const Value& profile_id) {
  if (!profile_id.is_string()) throw AttributeError("the profile id is not text");
  const auto& digits = profile_id.get_ref<const std::string&>();
  if (!is_number(digits)) {
    set_error_msg(fmt::format("Invalid profile ID {}", digits));
    return nullptr;
  }
  const long long number = parse_integer(digits).value_or(std::numeric_limits<long long>::max());
  auto found = siblings().profile_manager->get_profile(number);
  if (!found) set_error_msg(siblings().profile_manager->get_error_msg());
  return found;
}

void StreamConfig::copy_profile(const ProfileDescription& profile) {
  std::array<Value, preserved_keys.size()> copies;
  for (std::size_t i = 0; i < preserved_keys.size(); ++i) copies[i] = get_json_conf(preserved_keys[i]);
  for (const char* section : replaced_sections) del_json_conf(section);
  profile.copy_to(*this, {"id", "name", "version"});
  for (std::size_t i = 0; i < preserved_keys.size(); ++i) set_json_conf(preserved_keys[i], copies[i]);
}

}  // namespace weir
