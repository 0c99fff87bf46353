#pragma once

#include <limits.h>

#include <cstddef>
#include <filesystem>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/async.h"

namespace weir {

/// Bytes in the name of a file that `replace_file` can write: it adds ".tmp".
inline constexpr std::size_t max_replaceable_name = NAME_MAX - 4;

/// The content of a regular file. Throws `std::system_error`, also for a directory (EISDIR), anything that is no
/// regular file (EINVAL) and a file larger than `limit` bytes (EFBIG).
std::string read_file(const std::filesystem::path& path, std::size_t limit);

/// Replaces the file whole: written beside under a temporary name, then renamed. A crash of the process at any moment
/// leaves the old file or the new one; after a loss of power that holds where the file system writes a file before it
/// is renamed over another, as the usual ones do, and for content that `sync_file` made durable. A file that holds the
/// content already is not written. `mode` is that of a new file. Throws `std::system_error`.
void replace_file(const std::filesystem::path& path, std::string_view content, unsigned mode = 0644);

/// The same, but a change of a few bytes is written in place if the file keeps its size and the bytes lie in one
/// sector, which a disk writes whole or not at all: this costs a tenth of a new file. Not for files that others read
/// meanwhile.
void update_file(const std::filesystem::path& path, std::string_view content, unsigned mode = 0644);

/// Makes the file's content and name durable; the disk is waited for on a helper thread. Throws `std::system_error`.
Async<> sync_file(std::filesystem::path path);

/// The names of the entries of a directory, in the order of the file system. Throws `SystemError`.
std::vector<std::string> names_in(const std::filesystem::path& directory,
                                  std::source_location where = std::source_location::current());

/// Removes the directory with everything below it, if it exists. Throws `SystemError`.
void remove_directory(const std::filesystem::path& directory,
                      std::source_location where = std::source_location::current());

/// Creates the directory with its missing parents, unless it exists. Throws `SystemError`.
void make_directory(const std::filesystem::path& directory,
                    std::source_location where = std::source_location::current());

/// The two joined by one "/", unless `directory` ends with one.
std::string join_path(std::string_view directory, std::string_view name);

}  // namespace weir
