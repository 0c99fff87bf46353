#pragma once

namespace weir {

/// The buffer of a large answer is used again and not given back to the system after each: its pages cost more than the
/// answer's text. A setting of the whole process.
void keep_freed_memory();

}  // namespace weir
