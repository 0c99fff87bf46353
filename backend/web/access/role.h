#pragma once

#include <optional>
#include <string_view>

namespace weir {

/// What somebody may do; each role may do what those before it may.
enum class Role {
  nobody,     ///< watch published streams, log in
  viewer,     ///< read; secrets of documents are masked
  operator_,  ///< start, stop, restart and change streams and profiles: "operator"
  admin,      ///< also what concerns the server itself: webhooks, users
};
std::string_view to_word(Role role);
/// Nothing for a word that is not "viewer", "operator" or "admin".
std::optional<Role> parse_role(std::string_view word);

}  // namespace weir
