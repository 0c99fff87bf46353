#include "backend/web/api/document_tag.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/erase.hpp>
#include <nlohmann/json.hpp>

#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/web/api/compression.h"

namespace weir {

namespace {

constexpr std::size_t tag_bytes = 12;

}  // namespace

std::string make_text_tag(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  ::EVP_Digest(text.data(), text.size(), digest.data(), nullptr, ::EVP_sha256(), nullptr);
  return fmt::format("\"{:02x}\"", fmt::join(digest.begin(), digest.begin() + tag_bytes, ""));
}

std::string make_document_tag(const Value& document) {
  std::string text;
  for (const auto& [key, value] : document.items())
    if (key != "id" && key != "status") text += to_json(key) + to_json(value);
  return make_text_tag(text);
}

bool names_tag(std::string_view header, std::string_view tag, bool weak_counts) {
  if (trim(header) == "*") return true;
  while (!header.empty()) {
    const std::size_t end = std::min(header.find(','), header.size());
    std::string named(trim(header.substr(0, end)));
    header.remove_prefix(std::min(end + 1, header.size()));
    if (weak_counts && named.starts_with("W/")) named.erase(0, 2);
    boost::algorithm::erase_last(named, compressed_tag_suffix);
    if (named == tag) return true;
  }
  return false;
}

}  // namespace weir
