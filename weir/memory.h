#pragma once

namespace weir {

/// Keeps freed buffers up to 8 MiB for the next response: returning their pages to the system costs more than making
/// the text. A setting of the whole process.
void keep_freed_memory();

}  // namespace weir
