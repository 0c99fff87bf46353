#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace weir::test {

/// A directory that is removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "weir-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace weir::test
