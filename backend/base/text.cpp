#include "backend/base/text.h"

#include <algorithm>
#include <array>

namespace weir {

namespace {

// Beyond ASCII: U+0085, U+00A0, U+1680, U+2000 to U+200A, U+2028, U+2029, U+202F, U+205F, U+3000.
constexpr std::array<std::string_view, 19> wide_spaces{
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81", "\xE2\x80\x82", "\xE2\x80\x83",
    "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86", "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A",
    "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

// The separators U+001C to U+001F are white space to Unicode, though not to ASCII.
bool is_narrow_space(char c) { return is_space(c) || (c >= '\x1C' && c <= '\x1F'); }

template <class Matches>
std::size_t space_size(char next, Matches matches) {
  if (is_narrow_space(next)) return 1;
  if (static_cast<unsigned char>(next) < 0x80) return 0;
  const auto found = std::ranges::find_if(wide_spaces, matches);
  return found == wide_spaces.end() ? 0 : found->size();
}

std::size_t leading_space(std::string_view text) {
  if (text.empty()) return 0;
  return space_size(text.front(), [&](std::string_view space) { return text.starts_with(space); });
}

std::size_t trailing_space(std::string_view text) {
  if (text.empty()) return 0;
  return space_size(text.back(), [&](std::string_view space) { return text.ends_with(space); });
}

}  // namespace

std::string_view trim(std::string_view text) {
  while (const std::size_t size = leading_space(text)) text.remove_prefix(size);
  while (const std::size_t size = trailing_space(text)) text.remove_suffix(size);
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
