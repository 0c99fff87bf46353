#include "backend/web/url.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/beast/core/string.hpp>
#include <charconv>

namespace weir {

namespace {

using boost::beast::iequals;

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  boost::algorithm::split(parts, text, [=](char c) { return c == separator; });
  return parts;
}

// Takes "http://host:80" off the front.
bool take_host(std::string_view& text, std::string& host) {
  constexpr std::string_view separator = "://";
  const std::size_t scheme = std::min(text.find(separator), text.size());
  if (!iequals(text.substr(0, scheme), "http") && !iequals(text.substr(0, scheme), "https")) return false;
  text.remove_prefix(std::min(scheme + separator.size(), text.size()));
  host = text.substr(0, text.find_first_of("/?"));
  text.remove_prefix(host.size());
  return is_authority(host);
}

// Nothing when an escape is incomplete or not hexadecimal.
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

bool is_plain_segment(std::string_view segment) {
  return segment != "." && segment != ".." && segment.find('/') == std::string_view::npos &&
         segment.find('\0') == std::string_view::npos;
}

bool parse_path(std::string_view path, std::vector<std::string>& segments) {
  if (path.starts_with('/')) path.remove_prefix(1);
  for (const std::string_view part : split(path, '/')) {
    auto segment = percent_decode(part);
    if (!segment || !is_plain_segment(*segment)) return false;
    segments.push_back(std::move(*segment));
  }
  return true;
}

std::optional<std::string> decode_form_text(std::string_view text) {
  return percent_decode(boost::algorithm::replace_all_copy(std::string(text), "+", " "));
}

bool parse_query(std::string_view query, Target& target) {
  for (const std::string_view pair : split(query, '&')) {
    const std::size_t separator = std::min(pair.find('='), pair.size());
    const auto name = decode_form_text(pair.substr(0, separator));
    const auto value = decode_form_text(pair.substr(std::min(separator + 1, pair.size())));
    if (!name || !value) return false;
    target.query.emplace(*name, *value);
  }
  return true;
}

}  // namespace

bool is_authority(std::string_view text) {
  constexpr std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~%!$&'()*+,;=:[]";
  return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

std::optional<Target> parse_target(std::string_view text) {
  text = text.substr(0, text.find('#'));
  Target target;
  if (!text.starts_with('/') && !take_host(text, target.host)) return std::nullopt;
  const std::size_t question = std::min(text.find('?'), text.size());
  if (!parse_path(text.substr(0, question), target.path)) return std::nullopt;
  if (question < text.size() && !parse_query(text.substr(question + 1), target)) return std::nullopt;
  return target;
}

}  // namespace weir
