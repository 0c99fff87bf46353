#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

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

void copy_members(const Value& from, Value& to) {
  if (!to.is_object()) throw AttributeError("input 0 is not a mapping");
  for (const auto& [key, value] : from.items()) to[key] = value;
}

void add_input(Value& inputs, const std::string& key, const Value& input, const Value& defaults) {
  if (trimmed_url(input).empty()) return;
  inputs[key] = defaults;
  copy_members(input, inputs[key]);
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

struct NumberedMember {
  std::string key;
  std::size_t position;
  const Value* value;
};

// Ascending by number; equal ones ("7" and "07") as they stood.
bool before(const NumberedMember& left, const NumberedMember& right) {
  const int order = compare_numbers(left.key, right.key);
  return order != 0 ? order < 0 : left.position < right.position;
}

}  // namespace

bool StreamConfig::filter_input() {
  const Value defaults = get_json_conf("input.0", Value::object());
  Value filtered = Value::object();
  const Value inputs = get_json_conf("input");
  for (const auto& [key, value] : inputs.items()) {
    try {
      if (is_numbered(key, value)) {
        add_input(filtered, key, value, defaults);
      } else {
        filtered[key] = value;
      }
    } catch (const ValueError&) {
    } catch (const AttributeError&) {
      // A member of the wrong kind ends the handling of that member only.
    }
  }
  set_json_conf("input", std::move(filtered));
  return true;
}

bool StreamConfig::sort_input() {
  nb_inputs = sort_numbered("input");
  return true;
}

bool StreamConfig::filter_output() {
  Value outputs = get_json_conf("output");
  std::vector<std::string> keys;
  for (const auto& [key, value] : outputs.items()) keys.push_back(key);
  for (const std::string& key : keys) {
    Value& output = outputs[key];
    if (!output.is_object() || !normalise_output(key, output)) outputs.erase(key);
  }
  set_json_conf("output", std::move(outputs));
  return true;
}

bool StreamConfig::sort_output() {
  nb_outputs = sort_numbered("output");
  return true;
}

// Puts the members whose keys are numbers after the others, in ascending order, renumbered without gaps. Returns how
// many mappings were numbered.
int StreamConfig::sort_numbered(std::string_view name) {
  const Value mapping = get_json_conf(name);
  Value sorted = Value::object();
  std::vector<NumberedMember> numbered;
  for (const auto& [key, value] : mapping.items()) {
    if (is_number(key)) {
      numbered.push_back({key, numbered.size(), &value});
    } else {
      sorted[key] = value;
    }
  }
  std::ranges::sort(numbered, before);
  int count = 0;
  for (const NumberedMember& member : numbered) {
    const std::string place = member.value->is_object() ? std::to_string(count++) : member.key;
    sorted[place] = *member.value;
  }
  set_json_conf(name, std::move(sorted));
  return count;
}

}  // namespace weir
