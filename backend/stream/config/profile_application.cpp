#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

bool StreamConfig::apply_profile(const ProfileDescription* profile) {
  if (profile) return copy_profile(*profile);
  const Value profile_id = get_json_conf("profile");
  if (profile_id.is_null()) return true;
  const std::shared_ptr<const ProfileDescription> found = find_profile(profile_id);
  return found && copy_profile(*found);
}

// The profile of the registry; null with the reason.
std::shared_ptr<const ProfileDescription> StreamConfig::find_profile(const Value& profile_id) {
  if (!profile_id.is_string()) throw AttributeError("the profile id is not text");
  const auto& digits = profile_id.get_ref<const std::string&>();
  if (!is_number(digits)) {
    set_error_msg(fmt::format("Invalid profile ID {}", digits));
    return nullptr;
  }
  const auto number = parse_integer(digits);
  if (!number) {
    set_error_msg(fmt::format("There is no profile {}", digits));
    return nullptr;
  }
  auto found = siblings().profile_manager->get_profile(*number);
  if (!found) set_error_msg(siblings().profile_manager->get_error_msg());
  return found;
}

bool StreamConfig::copy_profile(const ProfileDescription& profile) {
  std::array<Value, kept_from_profile.size()> copies;
  std::ranges::transform(kept_from_profile, copies.begin(), [this](const char* key) { return get_json_conf(key); });
  for (const char* section : profile_sections) del_json_conf(section);
  profile.copy_to(*this, {"id", "name", "version"});
  for (std::size_t i = 0; i < copies.size(); ++i)
    if (!set_json_conf(kept_from_profile[i], std::move(copies[i]))) return false;
  return true;
}

}  // namespace weir
