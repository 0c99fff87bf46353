#include "tests/support/temporary_directory.h"

#include <cstdlib>
#include <string>
#include <system_error>

namespace weir::test {

TemporaryDirectory::TemporaryDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "weir-XXXXXX").string();
  if (!::mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), name);
  path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace weir::test
