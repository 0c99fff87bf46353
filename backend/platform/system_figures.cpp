#include "backend/platform/system_figures.h"

#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace weir {

namespace {

std::optional<std::uint64_t> read_memory(const std::string& name) {
  std::ifstream file("/proc/meminfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name + ":")) return std::strtoull(line.c_str() + name.size() + 1, nullptr, 10) * 1024;
  }
  return std::nullopt;
}

// The iterator's own descriptor is counted, too.
std::optional<std::uint64_t> count_descriptors() {
  std::error_code error;
  std::uint64_t count = 0;
  std::filesystem::directory_iterator entry("/proc/self/fd", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) ++count;
  return error || count == 0 ? std::nullopt : std::optional(count - 1);
}

}  // namespace

SystemFigures read_system_figures() {
  SystemFigures figures;
  figures.processors = static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
  std::array<double, 3> load{};
  if (::getloadavg(load.data(), 3) == 3) figures.load = load;
  figures.memory_bytes = read_memory("MemTotal");
  figures.available_bytes = read_memory("MemAvailable");
  figures.open_descriptors = count_descriptors();
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) figures.max_descriptors = limit.rlim_cur;
  utsname name{};
  if (::uname(&name) == 0) figures.kernel = fmt::format("{} {}", name.sysname, name.release);
  return figures;
}

std::optional<DiskFigures> read_disk_figures(const std::string& directory) {
  struct statvfs status{};
  if (::statvfs(directory.c_str(), &status) != 0) return std::nullopt;
  const std::uint64_t block = status.f_frsize;
  return DiskFigures{status.f_blocks * block, status.f_bavail * block};
}

}  // namespace weir
