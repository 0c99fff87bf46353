#include "weir/memory.h"

#include <malloc.h>

namespace weir {

void keep_freed_memory() {
  constexpr int max_kept_bytes = 8 << 20;
  ::mallopt(M_MMAP_THRESHOLD, max_kept_bytes);
  ::mallopt(M_TRIM_THRESHOLD, max_kept_bytes);
}

}  // namespace weir
