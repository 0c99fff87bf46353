#pragma once

#include <cstddef>
#include <cstdint>

namespace weir {

/// What this process uses, all threads together.
struct OwnProcess {
  double cpu_seconds = 0;
  std::uint64_t resident_bytes = 0;
  std::size_t open_descriptors = 0;
  std::uint64_t max_descriptors = 0;
};

/// A few microseconds; where the kernel does not count the descriptors of a process (before Linux 6.2) some
/// milliseconds with thousands of them.
OwnProcess read_own_process();

}  // namespace weir
