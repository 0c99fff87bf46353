#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <ranges>
#include <utility>
#include <vector>

#include "backend/base/indexed_mapping.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

namespace {

bool is_numbered(const std::string& key, const Value& value) { return value.is_object() && is_number(key); }

// --- inputs ---

std::string trimmed_url(const Value& input) {
  const auto url = input.find("url");
  if (url == input.end()) return {};
  if (!url->is_string()) throw AttributeError("an input's url is not text");
  return std::string(trim(url->get_ref<const std::string&>()));
}

bool starts_with_names(const Value& input, const Value& names) {
  const auto name = [](const auto& member) -> const std::string& { return member.first; };
  return input.size() >= names.size() &&
         std::ranges::equal(names.get_ref<const Value::object_t&>(),
                            std::views::take(input.get_ref<const Value::object_t&>(), names.size()), {}, name, name);
}

// A copy of input 0 with the input's own members; what was copied before a failure stays.
void add_input(IndexedMapping& inputs, const std::string& key, const Value& input, const Value& defaults) {
  if (trimmed_url(input).empty()) return;
  if (defaults.is_object() && starts_with_names(input, defaults)) {  // as after every load
    inputs[key] = input;
    return;
  }
  Value& filled = inputs[key] = defaults;
  if (!filled.is_object()) throw AttributeError("input 0 is not a mapping");
  IndexedMapping members(filled);
  for (const auto& [name, value] : input.items()) members[name] = value;
}

// --- outputs ---

const std::string& text_of(const Value& field, std::string_view name) {
  if (!field.is_string()) throw AttributeError(fmt::format("an output's {} is not text", name));
  return field.get_ref<const std::string&>();
}

void remove_leading_slashes(Value& output, const std::string& name) {
  std::string text = text_of(output[name], name);
  output[name] = text.erase(0, std::min(text.find_first_not_of('/'), text.size()));
}

void keep_base_name(Value& output, const std::string& name) {
  const std::string text = text_of(output[name], name);
  output[name] = text.substr(text.rfind('/') + 1);
}

std::string absolute_directory(const std::string& directory) {
  std::string path = std::filesystem::absolute(directory).lexically_normal().string();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

// The process's own assertion check; with checks disabled the key is not even looked at.
void check_hls_key(const std::string& key) {
  if (!assertions_enabled()) return;
  const std::string_view digits = trim(key);
  const std::string_view unsigned_digits = digits.substr(digits.starts_with('-') || digits.starts_with('+') ? 1 : 0);
  if (!is_number(unsigned_digits)) throw ValueError(fmt::format("output key \"{}\" is not a number", key));
  if (compare_numbers(unsigned_digits, "0") != 0) {
    throw AssertionError(fmt::format("an hls output has to be output 0, not {}", key));
  }
}

bool all_set(const Value& output, std::initializer_list<std::string_view> names) {
  return std::ranges::all_of(names, [&](std::string_view name) { return is_set(member(output, name)); });
}

void normalise_file_output(Value& output) {
  const Value& path = member(output, "path");
  output["path"] = absolute_directory(is_set(path) ? text_of(path, "path") : Config::UPLOAD_DIRECTORY);
  keep_base_name(output, "filename");
}

void normalise_hls_output(const std::string& key, Value& output) {
  check_hls_key(key);
  if (!output.contains("playlist_name")) throw KeyError("an hls output has no playlist_name");
  keep_base_name(output, "playlist_name");
}

// Brings the output into normal form by the first rule that fits. False when none does.
bool normalise_output(const std::string& key, Value& output) {
  const Value protocol = member(output, "protocol");
  if (protocol == "rtmp" && all_set(output, {"server", "port", "app", "playpath"})) {
    remove_leading_slashes(output, "app");
    remove_leading_slashes(output, "playpath");
  } else if (protocol == "rtsp" && all_set(output, {"hostname", "port", "path"})) {
    remove_leading_slashes(output, "path");
  } else if (protocol == "file" && all_set(output, {"filename"})) {
    normalise_file_output(output);
  } else if (protocol == "http" && all_set(output, {"filename"})) {
    keep_base_name(output, "filename");
  } else if (protocol == "hls") {
    normalise_hls_output(key, output);
  } else {
    return all_set(output, {"hostname", "port"});
  }
  return true;
}

// --- order ---

// The members whose keys are numbers after the others, in ascending order, renumbered without gaps. `count` is that of
// the mappings among them.
Value number_members(const Value& mapping, int& count) {
  Value result = Value::object();
  IndexedMapping sorted(result);
  for (const auto& [key, value] : mapping.items())
    if (!is_number(key)) sorted[key] = value;
  count = 0;
  for (const NumberedMember& member : numbered_members(mapping)) {
    const std::string place = member.value->is_object() ? std::to_string(count++) : member.key;
    sorted[place] = *member.value;
  }
  return result;
}

// The number of mappings when they are in that order already, as after every load.
std::optional<int> count_if_sorted(const Value& mapping) {
  int count = 0;
  for (const auto& [key, value] : mapping.items()) {
    const bool in_order = is_number(key) ? value.is_object() && key == std::to_string(count) : count == 0;
    if (!in_order) return std::nullopt;
    if (is_number(key)) ++count;
  }
  return count;
}

}  // namespace

bool StreamConfig::filter_input() {
  const Value defaults = get_json_conf("input.0", Value::object());
  Value filtered = Value::object();
  IndexedMapping inputs(filtered);
  for (const auto& [key, value] : get_json_conf("input").items()) {
    try {
      if (is_numbered(key, value)) {
        add_input(inputs, key, value, defaults);
      } else {
        inputs[key] = value;
      }
    } catch (const ValueError&) {
    } catch (const AttributeError&) {
      // A member of the wrong kind ends the handling of that member only.
    }
  }
  return set_json_conf("input", std::move(filtered));
}

bool StreamConfig::sort_input() { return sort_members("input", nb_inputs); }

bool StreamConfig::sort_members(const char* name, int& count) {
  const Value& members = get_json_conf(name);
  if (const auto numbered = count_if_sorted(members)) {
    count = *numbered;
    return true;
  }
  return set_json_conf(name, number_members(members, count));
}

bool StreamConfig::filter_output() {
  Value filtered = Value::object();
  IndexedMapping outputs(filtered);
  for (const auto& [key, value] : get_json_conf("output").items()) {
    if (!value.is_object()) continue;
    Value output = value;
    if (normalise_output(key, output)) outputs[key] = std::move(output);
  }
  return set_json_conf("output", std::move(filtered));
}

bool StreamConfig::sort_output() { return sort_members("output", nb_outputs); }

}  // namespace weir
