#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace weir {

/// One process's use of one graphics processor. Absent figures are unknown.
struct GpuProcess {
  pid_t pid = 0;
  int gpu = 0;                      ///< index of the graphics processor
  std::optional<unsigned> sm;       ///< use of the multiprocessors in percent
  std::optional<unsigned> encoder;  ///< in percent
  std::optional<unsigned> decoder;  ///< in percent
  std::optional<unsigned> memory_mib;
};

/// Where the figures of the graphics processors come from.
class GpuSource {
 public:
  virtual ~GpuSource() = default;
  /// The processes that use a graphics processor now. Empty when that cannot be told.
  virtual std::vector<GpuProcess> read() = 0;
};

}  // namespace weir
