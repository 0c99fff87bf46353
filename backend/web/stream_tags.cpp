#include "backend/web/stream_tags.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/web/response.h"

namespace weir {

namespace {

constexpr std::size_t max_tags = 100;
constexpr std::size_t max_tag = 100;

bool is_tag(const Value& value) {
  if (!value.is_string()) return false;
  const auto& text = value.get_ref<const std::string&>();
  return !text.empty() && text.size() <= max_tag;
}

}  // namespace

bool has_tags(const JsonConf& conf, const std::vector<std::string>& wanted) {
  const Value& tags = conf.get_json_conf("tags");
  return std::ranges::all_of(wanted, [&](const std::string& tag) {
    return tags.is_array() && std::ranges::find(tags, Value(tag)) != tags.end();
  });
}

void check_tags(const Value& document) {
  const Value& tags = member(document, "tags");
  if (tags.is_null()) return;
  if (!tags.is_array()) throw HttpError(400, fmt::format("tags: {} is not a list of texts", to_text(tags)));
  if (tags.size() > max_tags) throw HttpError(400, fmt::format("tags: {} are more than {}", tags.size(), max_tags));
  for (const Value& tag : tags) {
    if (!is_tag(tag))
      throw HttpError(400, fmt::format("tags: {} is not a text of 1 to {} bytes", to_text(tag), max_tag));
  }
}

}  // namespace weir
