#include "backend/collaborators/file_roots.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <system_error>

#include "backend/collaborators/config.h"

namespace weir {

namespace fs = std::filesystem;

bool is_below(const fs::path& resolved, const std::string& directory) {
  std::error_code error;
  const fs::path root = fs::weakly_canonical(fs::absolute(directory), error);
  if (error) return false;
  return std::ranges::mismatch(root, resolved).in1 == root.end();
}

std::string find_media_file_fault(const std::string& path) {
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(fs::absolute(path, error), error);
  if (error) return fmt::format("{}: {}", path, error.message());
  std::vector<std::string> roots = Config::FILE_ROOTS;
  roots.push_back(Config::UPLOAD_DIRECTORY);
  if (std::ranges::any_of(roots, [&](const std::string& root) { return is_below(resolved, root); })) return {};
  return fmt::format("{} is not below {} (--file-root)", path, fmt::join(roots, " or "));
}

}  // namespace weir
