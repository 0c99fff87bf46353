#include "backend/web/broken_stream_files.h"

#include <fmt/core.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "backend/base/log.h"
#include "backend/base/numbers.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/version.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/config/stream_config.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view broken_suffix = ".conf.broken";

std::string path_of(const std::string& file) { return join_path(Config::STREAM_DIRECTORY, file); }

bool is_stream_file(const std::string& file) {
  const std::size_t dot = file.find('.');
  return dot != std::string::npos && is_number(file.substr(0, dot)) && file.substr(dot) == ".conf";
}

bool was_set_aside(const std::string& file) {
  const std::size_t dot = file.find('.');
  return dot != std::string::npos && is_number(file.substr(0, dot)) && file.substr(dot).starts_with(broken_suffix);
}

std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

// Why the document does not load; empty when it does. Failures are raised as they are.
std::string load(StreamConfig& document) {
  if (!document.load_json_conf()) return document.get_error_msg();
  StreamConfigVersionControl(document).update();
  return {};
}

std::string find_reason(const std::string& file) {
  StreamConfig document(path_of(file));
  try {
    const std::string reason = load(document);
    return reason.empty() ? "It loads now: rename it to get its stream back" : reason;
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace

void BrokenStreamFiles::examine() {
  for (const std::string& file : names_in(Config::STREAM_DIRECTORY)) {
    if (is_stream_file(file)) examine_stream_file(file);
    if (was_set_aside(file)) reasons_[file] = find_reason(file);
  }
}

void BrokenStreamFiles::examine_stream_file(const std::string& file) {
  try {
    const auto id = parse_integer(file.substr(0, file.find('.')));
    if (!id) throw ValueError("The number of the stream is too large");
    const auto document = std::make_shared<StreamConfig>(path_of(file));
    const std::string reason = load(*document);
    if (!reason.empty()) {
      reasons_[file] = reason;
      return;
    }
    // Its working directories are made, and its collaborators called, as they will be.
    const auto stream = std::make_shared<Stream>(*id, document);
  } catch (const std::exception& failure) {
    set_aside(file, failure.what());
  }
}

void BrokenStreamFiles::make_room(const std::string& file) {
  if (!fs::exists(fs::symlink_status(path_of(file)))) return;
  const auto known = reasons_.find(file);
  set_aside(file, known == reasons_.end() ? "A new stream needed its name" : known->second);
}

void BrokenStreamFiles::set_aside(const std::string& file, const std::string& reason) {
  std::string aside = file + ".broken";
  for (int number = 1; fs::exists(fs::symlink_status(path_of(aside))); ++number)
    aside = fmt::format("{}.broken.{}", file, number);
  fs::rename(path_of(file), path_of(aside));
  log(LogLevel::error, "Streams", fmt::format("{} is set aside as {}: {}", file, aside, reason));
  reasons_.erase(file);
  reasons_[aside] = reason;
}

Value BrokenStreamFiles::list() const {
  Value files = Value::array();
  for (const auto& [file, reason] : reasons_)
    if (fs::exists(fs::symlink_status(path_of(file)))) files.push_back({{"file", file}, {"reason", reason}});
  return files;
}

}  // namespace weir
