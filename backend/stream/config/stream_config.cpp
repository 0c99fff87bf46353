#include "backend/stream/config/stream_config.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/bounded_json.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

constexpr std::size_t max_numbered = 500;

std::size_t count_numbered(const Value& mapping) {
  std::size_t count = 0;
  for (const auto& [key, value] : mapping.items()) count += is_number(key) ? 1 : 0;
  return count;
}

}  // namespace

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
  return check_growth() && filter_input() && sort_input() && filter_output() && sort_output() && apply_profile() &&
         check_size();
}

// Every input gets a copy of input 0: a small document could become one that fills the memory.
bool StreamConfig::check_growth() {
  const std::size_t inputs = count_numbered(get_json_conf("input"));
  if (std::max(inputs, count_numbered(get_json_conf("output"))) > max_numbered) {
    set_error_msg(fmt::format("Invalid document: more than {} inputs or outputs", max_numbered));
    return false;
  }
  const Value& copied = get_json_conf("input.0");
  if (inputs < 2 || !copied.is_structured()) return true;
  if (inputs * to_json(copied).size() <= max_document_bytes && inputs * copied.size() <= max_members) return true;
  set_error_msg("Invalid input: the settings of input 0 are too large to be those of every input");
  return false;
}

bool StreamConfig::check_size() {
  try {
    check_bounds(document());
    return true;
  } catch (const ValueError& failure) {
    set_error_msg(fmt::format("Invalid document: {}", failure.what()));
    return false;
  }
}

std::vector<Value> StreamConfig::get_input_urls() const {
  std::vector<Value> urls;
  const Value& inputs = get_json_conf("input");
  for (int index = 0; index < nb_inputs; ++index) urls.push_back(member(member(inputs, std::to_string(index)), "url"));
  return urls;
}

std::string get_hls_path(long long stream_id, std::string_view filename) {
  return join_path(Config::HLS_DIRECTORY, fmt::format("{}/{}", stream_id, filename));
}

}  // namespace weir
