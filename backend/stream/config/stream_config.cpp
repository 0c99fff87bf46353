#include "backend/stream/config/stream_config.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir {

StreamConfig::StreamConfig(std::string file, Error* error_handler) : JsonConf(std::move(file), error_handler) {}

bool StreamConfig::load_json_conf() { return JsonConf::load_json_conf() && normalise(); }

bool StreamConfig::load_json_conf(const Value& form) { return JsonConf::load_json_conf(form) && normalise(); }

// Outputs are checked under the keys they were posted under, so before they are renumbered; the profile is applied to
// the normalised document.
bool StreamConfig::normalise() {
  if (!get_json_conf("input").is_object()) {
    set_error_msg("Invalid input");
    return false;
  }
  if (!get_json_conf("output").is_object()) {
    set_error_msg("Invalid output");
    return false;
  }
  return filter_input() && sort_input() && filter_output() && sort_output() && apply_profile();
}

std::vector<Value> StreamConfig::get_input_urls() const {
  std::vector<Value> urls;
  for (int index = 0; index < nb_inputs; ++index) urls.push_back(get_json_conf(fmt::format("input.{}.url", index)));
  return urls;
}

std::string get_hls_path(long long stream_id, std::string_view filename) {
  return join_path(Config::HLS_DIRECTORY, fmt::format("{}/{}", stream_id, filename));
}

}  // namespace weir
