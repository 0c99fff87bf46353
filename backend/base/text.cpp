#include "backend/base/text.h"

namespace weir {

std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

std::string escape(std::string_view text, std::string_view specials) {
  std::string escaped;
  for (const char c : text) {
    if (specials.find(c) != std::string_view::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace weir
