#include "backend/web/byte_range.h"

#include <algorithm>
#include <boost/beast/core/string.hpp>
#include <charconv>

namespace weir {

namespace {

std::optional<std::uint64_t> parse_position(std::string_view text) {
  std::uint64_t position = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), position);
  if (text.empty() || end != text.data() + text.size()) return std::nullopt;
  return error == std::errc::result_out_of_range ? UINT64_MAX : position;
}

ByteRange suffix(std::uint64_t length, std::uint64_t file_size) {
  const std::uint64_t size = std::min(length, file_size);
  return {file_size - size, size};
}

}  // namespace

std::optional<ByteRange> parse_range(std::string_view header, std::uint64_t file_size) {
  constexpr std::string_view unit = "bytes=";
  if (!boost::beast::iequals(header.substr(0, unit.size()), unit)) return std::nullopt;
  header.remove_prefix(unit.size());
  const std::size_t dash = header.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view last_text = header.substr(dash + 1);
  const auto last = parse_position(last_text);
  if (dash == 0) return last ? std::optional(suffix(*last, file_size)) : std::nullopt;
  const auto first = parse_position(header.substr(0, dash));
  if (!first || (!last && !last_text.empty()) || (last && *last < *first)) return std::nullopt;
  if (*first >= file_size) return ByteRange{file_size, 0};
  const std::uint64_t end = last ? std::min(*last, file_size - 1) : file_size - 1;
  return ByteRange{*first, end - *first + 1};
}

}  // namespace weir
