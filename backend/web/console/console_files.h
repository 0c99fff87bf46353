#pragma once

#include <span>
#include <string_view>

namespace weir {

/// A file of the web console, part of the program.
struct ConsoleFile {
  std::string_view path;  ///< "/index.html", "/assets/main-XYZ.js"
  std::string_view content_type;
  std::string_view hash;     ///< of the content
  std::string_view gzipped;  ///< the content
};

/// All files of the console; none where the program was built without it.
std::span<const ConsoleFile> console_files();

}  // namespace weir
