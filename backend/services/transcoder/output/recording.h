#pragma once

#include <filesystem>

namespace weir {

/// Makes room for a recording: creates its directory, and renames a file that has the name already to one with the time
/// of its last change in it (rec.mp4 to rec.20261122-213005.mp4), so that no recording is ever overwritten. Throws
/// `std::system_error`.
void keep_existing_recording(const std::filesystem::path& path);

}  // namespace weir
