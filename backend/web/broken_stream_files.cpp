#include "backend/web/broken_stream_files.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/platform/files.h"
#include "backend/stream/manager/stream_file.h"

namespace weir {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view broken_suffix = ".broken";

bool exists(const std::string& file) { return fs::exists(fs::symlink_status(stream_file_path(file))); }

// "12.conf" for "12.conf.broken" and "12.conf.broken.3"; empty for other names.
std::string original_name(const std::string& file) {
  const std::size_t suffix = file.find(broken_suffix);
  const std::string original = file.substr(0, suffix);
  return suffix != std::string::npos && is_stream_file(original) ? original : std::string();
}

}  // namespace

std::string BrokenStreamFiles::reason(const std::string& file) const {
  const auto known = reasons_.find(file);
  return known == reasons_.end() ? std::string() : known->second;
}

std::string BrokenStreamFiles::set_aside(const std::string& file) {
  std::string aside = file + std::string(broken_suffix);
  for (int number = 1; exists(aside); ++number) aside = fmt::format("{}{}.{}", file, broken_suffix, number);
  fs::rename(stream_file_path(file), stream_file_path(aside));
  reasons_.erase(file);
  return aside;
}

Async<Value> BrokenStreamFiles::list() {
  std::map<std::string, std::string> reasons = reasons_;
  for (const std::string& file : names_in(Config::STREAM_DIRECTORY))
    if (!original_name(file).empty()) reasons.emplace(file, "");
  Value files = Value::array();
  for (auto& [file, reason] : reasons) {
    // A file may be large, and there may be many.
    co_await yield_to_others();
    if (!exists(file)) continue;
    if (reason.empty()) reason = find_reason(file);
    files.push_back({{"file", file}, {"reason", reason}});
  }
  co_return files;
}

std::string BrokenStreamFiles::find_reason(const std::string& file) {
  StreamConfig document(stream_file_path(file));
  try {
    if (!document.load_json_conf()) return document.get_error_msg();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return fmt::format("It loads now: rename it to {} to get its stream back", stream_file_name(free_number(file)));
}

// The number that the file had, unless it is taken meanwhile. It stays reserved: renaming the file later
// must not overwrite another one.
long long BrokenStreamFiles::free_number(const std::string& file) {
  free_numbers_.try_emplace(file, stream_id_of(original_name(file)).value_or(manager_.stream_next_id));
  long long& id = free_numbers_[file];
  while (is_taken(id, file)) id = std::max(id + 1, manager_.stream_next_id);
  manager_.stream_next_id = std::max(manager_.stream_next_id, id + 1);
  return id;
}

bool BrokenStreamFiles::is_taken(long long id, const std::string& file) const {
  const auto is_reserved = [&](const auto& other) { return other.second == id && other.first != file; };
  return manager_.streams.contains(id) || exists(stream_file_name(id)) ||
         std::ranges::any_of(free_numbers_, is_reserved);
}

}  // namespace weir
