// What a process uses, as the kernel counts it.
#pragma once

#include <fmt/core.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace weir::bench {

struct Usage {
  double cpu_seconds = 0;  ///< of all threads
  long switches = 0;       ///< voluntary context switches of all threads: wake-ups
};

inline Usage usage_of(pid_t pid) {
  Usage usage;
  for (const auto& thread : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
    double nanoseconds = 0;
    std::ifstream(thread.path() / "schedstat") >> nanoseconds;
    usage.cpu_seconds += nanoseconds / 1e9;
    std::ifstream status(thread.path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("voluntary_ctxt_switches:")) usage.switches += std::atol(line.c_str() + 24);
    }
  }
  return usage;
}

inline double resident_mebibytes(pid_t pid) {
  long size = 0;
  long resident = 0;
  std::ifstream(fmt::format("/proc/{}/statm", pid)) >> size >> resident;
  return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / (1 << 20);
}

}  // namespace weir::bench
