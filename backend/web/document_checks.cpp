#include "backend/web/document_checks.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "backend/base/bounded_json.h"
#include "backend/base/indexed_mapping.h"
#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/http_output.h"
#include "backend/collaborators/utils.h"
#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/web/response.h"

namespace weir {

namespace {

// Room for what the server adds to a document.
constexpr std::size_t spare_bytes = 4096;
constexpr std::size_t spare_members = 32;

std::string join_key(const std::string& name, const std::string& below) {
  return below.empty() ? name : name + "." + below;
}

// The key of the first text, or name of a member, that `fits`; nothing when there is none.
template <class Fits>
std::optional<std::string> find_text(const Value& value, const Fits& fits) {
  if (value.is_string() && fits(value.get_ref<const std::string&>())) return std::string();
  if (!value.is_structured()) return std::nullopt;
  for (const auto& [name, element] : value.items()) {
    if (fits(name)) return name;
    if (const auto below = find_text(element, fits)) return join_key(name, *below);
  }
  return std::nullopt;
}

// The key of the first difference, whatever the order of members; nothing when there is none.
std::optional<std::string> find_difference(const Value& saved, Value& loaded) {
  const std::optional<std::string> here = "";
  if (!saved.is_structured() || saved.type() != loaded.type()) return saved == loaded ? std::nullopt : here;
  if (saved.is_array() && saved.size() != loaded.size()) return here;
  std::optional<IndexedMapping> members;
  if (loaded.is_object()) members.emplace(loaded);
  std::size_t position = 0;
  for (const auto& [name, value] : saved.items()) {
    Value* other = members ? members->find(name) : &loaded[position++];
    if (!other) return name;
    if (const auto below = find_difference(value, *other)) return join_key(name, *below);
  }
  return saved.size() == loaded.size() ? std::nullopt : here;
}

void refuse_text(const Value& document, bool (*fits)(const std::string&), const std::string& reason) {
  auto key = find_text(document, fits);
  if (!key) return;
  std::ranges::replace(*key, '\0', '?');
  throw HttpError(400, fmt::format("{}: {}", *key, reason));
}

}  // namespace

void check_texts(const Value& document) {
  refuse_text(
      document, [](const std::string& text) { return text.find('\0') != std::string::npos; },
      "a text can't hold a NUL character");
  refuse_text(
      document, [](const std::string& text) { return text.size() > max_argument_bytes; },
      fmt::format("longer than {} bytes", max_argument_bytes));
}

void check_playlist_names(const Value& document) {
  for (const auto& [key, output] : member(document, "output").items()) {
    const Value& name = member(output, "playlist_name");
    if (member(output, "protocol") != "hls" || !name.is_string()) continue;
    const std::string fault = find_playlist_name_fault(name.get_ref<const std::string&>());
    if (!fault.empty()) throw HttpError(400, fmt::format("output.{}.playlist_name: {}", key, fault));
  }
}

void check_http_outputs(const Value& document) {
  std::set<std::string> names;
  for (const auto& [key, output] : member(document, "output").items()) {
    const Value& name = member(output, "filename");
    if (member(output, "protocol") != "http" || !name.is_string()) continue;
    const std::string fault = find_http_output_fault(output);
    if (!fault.empty()) throw HttpError(400, fmt::format("output.{}.{}", key, fault));
    if (!names.insert(name.get<std::string>()).second)
      throw HttpError(400, fmt::format("output.{}.filename: another \"http\" output has this name", key));
  }
}

void check_access(const Value& document) {
  const Value& access = member(document, "access");
  if (!is_set(access) || access == "open" || access == "link") return;
  throw HttpError(400, fmt::format("access: {} is not open or link", to_text(access)));
}

std::string check_size(const Value& document) {
  try {
    check_members(document, spare_members);
    std::string text = to_json(document, true);
    if (text.size() > max_document_bytes - spare_bytes)
      throw ValueError(fmt::format("larger than {} bytes", max_document_bytes - spare_bytes));
    return text;
  } catch (const ValueError& failure) {
    throw HttpError(400, fmt::format("Invalid document: {}", failure.what()));
  }
}

void check_same(const Value& document, Value loaded_again) {
  const auto key = find_difference(document, loaded_again);
  if (!key) return;
  throw HttpError(400, fmt::format("{}: would be lost or changed when the stream is loaded again", *key));
}

}  // namespace weir
