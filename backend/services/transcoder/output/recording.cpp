#include "backend/services/transcoder/output/recording.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

#include <string>

#include "backend/platform/failure.h"

namespace weir {

namespace {

std::string format_local_time(time_t seconds) {
  tm local{};
  localtime_r(&seconds, &local);
  return fmt::format("{:%Y%m%d-%H%M%S}", local);
}

/// False when the new name is taken.
bool rename_to_free_name(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EEXIST) return false;
  // Network file systems know no such flag.
  if (errno != EINVAL && errno != ENOSYS) throw_errno("rename " + from.string());
  if (std::filesystem::exists(to)) return false;
  std::filesystem::rename(from, to);
  return true;
}

}  // namespace

void keep_existing_recording(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  struct stat status{};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    throw_errno("stat " + path.string());
  }
  const std::string stem = path.stem().string() + "." + format_local_time(status.st_mtime);
  for (int attempt = 1; attempt <= 1000; ++attempt) {
    const std::string suffix = attempt == 1 ? "" : fmt::format("-{}", attempt);
    if (rename_to_free_name(path, path.parent_path() / (stem + suffix + path.extension().string()))) return;
  }
  throw_errno(EEXIST, "rename " + path.string());
}

}  // namespace weir
