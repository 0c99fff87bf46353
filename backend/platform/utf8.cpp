#include "backend/platform/utf8.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace weir {

namespace {

bool is_continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The length of the valid sequence at the start of `text`, 0 when there is none (RFC 3629, section 4).
std::size_t sequence_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!is_continuation(byte(i))) return 0;
  }
  return length;
}

}  // namespace

std::string to_valid_utf8(std::string text) {
  if (std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return text;
  std::string valid;
  valid.reserve(text.size() + 16);
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = sequence_length(rest);
    valid += length > 0 ? rest.substr(0, length) : std::string_view("\xEF\xBF\xBD");
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

}  // namespace weir
