#pragma once

#include <string>
#include <string_view>

#include "backend/services/transcoder/settings.h"

namespace weir {

/// The member "filters" of "video" or "audio". Throws `ValueError` when it may not be used.
std::string read_filters(const Settings& settings);

/// Why a document may not use the filter graph, empty when it may. Filters and their options come from an allow list:
/// those that only change video and audio. Files that filters read lie below `Config::FILE_ROOTS`.
std::string find_filter_fault(std::string_view graph);

/// Why a filter may not read the file or directory, empty when it may: it has to exist below one of
/// `Config::FILE_ROOTS`, links resolved.
std::string find_file_fault(const std::string& path);

}  // namespace weir
