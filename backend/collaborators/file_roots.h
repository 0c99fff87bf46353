#pragma once

#include <filesystem>
#include <string>

namespace weir {

/// Whether the path, its links resolved, is the directory or lies below it.
bool is_below(const std::filesystem::path& resolved, const std::string& directory);

/// Why a document may not name the file as an input or output, empty when it may: it lies below one of
/// `Config::FILE_ROOTS` or the upload directory, links resolved. It need not exist.
std::string find_media_file_fault(const std::string& path);

}  // namespace weir
