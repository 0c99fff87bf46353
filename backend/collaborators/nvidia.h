#pragma once

#include <sys/types.h>

#include <string>

#include "backend/base/value.h"

namespace weir {

class NvidiaDriverManager {
 public:
  virtual ~NvidiaDriverManager() = default;
  /// The library that transcoders of an "nvenc" build are started with (LD_PRELOAD).
  virtual std::string get_patch_library() const = 0;
};

/// A process's use of graphics processors. Figures are numbers; null means that none is known.
class NvidiaProcessManager {
 public:
  virtual ~NvidiaProcessManager() = default;
  /// The index of the graphics processor that the process uses; null when it has no figures.
  virtual Value query_gpu(pid_t pid) = 0;
  virtual Value query_dec(pid_t pid) = 0;  ///< decoder use in percent
  virtual Value query_sm(pid_t pid) = 0;   ///< use of the multiprocessors in percent
  virtual Value query_enc(pid_t pid) = 0;  ///< encoder use in percent
  virtual Value query_fb(pid_t pid) = 0;   ///< graphics memory in MiB
};

}  // namespace weir
