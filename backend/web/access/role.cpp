#include "backend/web/access/role.h"

#include <algorithm>
#include <array>

namespace weir {

namespace {

constexpr std::array<std::string_view, 4> words{"nobody", "viewer", "operator", "admin"};

}  // namespace

std::string_view to_word(Role role) { return words.at(static_cast<std::size_t>(role)); }

std::optional<Role> parse_role(std::string_view word) {
  const auto found = std::find(words.begin() + 1, words.end(), word);
  if (found == words.end()) return std::nullopt;
  return static_cast<Role>(found - words.begin());
}

}  // namespace weir
