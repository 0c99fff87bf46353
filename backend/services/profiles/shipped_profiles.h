#pragma once

#include <span>
#include <string_view>

namespace weir {

/// A profile that comes with the program, as the text of its file.
struct ShippedProfile {
  std::string_view file_name;
  std::string_view text;
};

/// The files of the source folder profiles/, embedded when the program is built.
std::span<const ShippedProfile> shipped_profiles();

}  // namespace weir
