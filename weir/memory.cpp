#include "weir/memory.h"

#include <malloc.h>

namespace weir {

void keep_freed_memory() {
  constexpr int most_kept = 8 << 20;
  ::mallopt(M_MMAP_THRESHOLD, most_kept);
  ::mallopt(M_TRIM_THRESHOLD, most_kept);
}

}  // namespace weir
