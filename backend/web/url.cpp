#include "backend/web/url.h"

#include <charconv>

namespace weir {

namespace {

// A client may send the whole URL; only the part after the host says what it wants.
std::string_view strip_origin(std::string_view target) {
  const std::size_t scheme = target.find("://");
  if (target.starts_with('/') || scheme == std::string_view::npos) return target;
  const std::size_t path = target.find('/', scheme + 3);
  return path == std::string_view::npos ? std::string_view("/") : target.substr(path);
}

bool is_plain_segment(std::string_view segment) {
  return segment != "." && segment != ".." && segment.find('/') == std::string_view::npos &&
         segment.find('\0') == std::string_view::npos;
}

bool parse_path(std::string_view path, std::vector<std::string>& segments) {
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::size_t end = std::min(path.find('/'), path.size());
    auto segment = percent_decode(path.substr(0, end));
    if (!segment || !is_plain_segment(*segment)) return false;
    segments.push_back(std::move(*segment));
    path.remove_prefix(end);
  }
  return true;
}

std::optional<std::string> decode_form_text(std::string_view text) {
  std::string spaced(text);
  for (char& c : spaced)
    if (c == '+') c = ' ';
  return percent_decode(spaced);
}

bool parse_query(std::string_view query, Target& target) {
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view pair = query.substr(0, end);
    const std::size_t separator = std::min(pair.find('='), pair.size());
    const auto name = decode_form_text(pair.substr(0, separator));
    const auto value = decode_form_text(pair.substr(std::min(separator + 1, pair.size())));
    if (!name || !value) return false;
    target.query[*name] = *value;
    query.remove_prefix(std::min(end + 1, query.size()));
  }
  return true;
}

}  // namespace

std::optional<std::string> percent_decode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    unsigned char byte = 0;
    const char* digits = text.data() + i + 1;
    if (text.size() - i < 3 || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return std::nullopt;
    decoded += static_cast<char>(byte);
    i += 2;
  }
  return decoded;
}

std::optional<Target> parse_target(std::string_view text) {
  text = strip_origin(text.substr(0, text.find('#')));
  if (!text.starts_with('/')) return std::nullopt;
  const std::size_t question = std::min(text.find('?'), text.size());
  Target target;
  if (!parse_path(text.substr(0, question), target.path)) return std::nullopt;
  if (question < text.size() && !parse_query(text.substr(question + 1), target)) return std::nullopt;
  return target;
}

}  // namespace weir
