#include "backend/platform/own_process.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>

namespace weir {

namespace {

// The size of the directory is the number of descriptors, where the kernel tells it.
std::size_t count_descriptors() {
  struct stat status{};
  if (::stat("/proc/self/fd", &status) == 0 && status.st_size > 0) return static_cast<std::size_t>(status.st_size);
  std::error_code error;
  std::size_t count = 0;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
       entry.increment(error))
    ++count;
  return count > 0 ? count - 1 : 0;  // without that of the directory
}

}  // namespace

OwnProcess read_own_process() {
  OwnProcess own;
  timespec cpu{};
  if (::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu) == 0)
    own.cpu_seconds = static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) / 1e9;
  std::uint64_t virtual_pages = 0;
  std::uint64_t resident_pages = 0;
  if (std::ifstream("/proc/self/statm") >> virtual_pages >> resident_pages)
    own.resident_bytes = resident_pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  own.open_descriptors = count_descriptors();
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) own.max_descriptors = limit.rlim_cur;
  return own;
}

}  // namespace weir
