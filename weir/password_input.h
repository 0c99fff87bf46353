#pragma once

#include <string>

namespace weir {

/// A new password: typed twice at the terminal, without being shown, or else the first line of standard input. Throws
/// `std::runtime_error` for one that is too short or too long, or was not typed alike.
std::string read_new_password();

}  // namespace weir
