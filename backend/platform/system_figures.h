#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace weir {

/// The machine, as its kernel describes it. What it does not tell is absent.
struct SystemFigures {
  int processors = 0;
  std::optional<std::array<double, 3>> load;      ///< average length of the run queue over 1, 5 and 15 minutes
  std::optional<std::uint64_t> memory_bytes;      ///< in all
  std::optional<std::uint64_t> available_bytes;   ///< memory that programs could get without swapping
  std::optional<std::uint64_t> open_descriptors;  ///< of this process
  std::uint64_t max_descriptors = 0;              ///< of this process
  std::string kernel;                             ///< name and release
};
SystemFigures read_system_figures();

/// The file system under a directory.
struct DiskFigures {
  std::uint64_t total_bytes = 0;
  std::uint64_t free_bytes = 0;  ///< for this user
};
/// Nothing when it cannot be read. May block for long or forever where the file system is on a network.
std::optional<DiskFigures> read_disk_figures(const std::string& directory);

}  // namespace weir
