#include "backend/stream/manager/stream_file.h"

#include <fmt/core.h>

#include "backend/base/numbers.h"
#include "backend/collaborators/config.h"
#include "backend/platform/files.h"

namespace weir {

namespace {

constexpr std::string_view suffix = ".conf";

std::string_view stem(std::string_view name) { return name.substr(0, name.size() - suffix.size()); }

}  // namespace

std::string stream_file_name(long long id) { return fmt::format("{}{}", id, suffix); }

std::string stream_file_path(std::string_view name) { return join_path(Config::STREAM_DIRECTORY, name); }

bool is_stream_file(std::string_view name) { return name.ends_with(suffix) && is_number(stem(name)); }

std::optional<long long> stream_id_of(std::string_view name) {
  const auto id = is_stream_file(name) ? parse_integer(stem(name)) : std::nullopt;
  return id <= max_stream_id ? id : std::nullopt;
}

}  // namespace weir
