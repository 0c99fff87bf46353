#include "backend/services/transcoder/filters/filter_check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "backend/collaborators/config.h"
#include "backend/collaborators/file_roots.h"
#include "backend/platform/failure.h"
#include "backend/services/transcoder/filters/filter_graph.h"
#include "backend/services/transcoder/filters/filter_table.h"

namespace weir {

namespace {

namespace fs = std::filesystem;

/// What every filter has.
constexpr auto common_options =
    std::to_array<std::string_view>({"enable", "extra_hw_frames", "thread_type", "threads"});

const AllowedFilter& get_allowed(const std::string& name) {
  const auto found = get_filter_table().find(name);
  if (found == get_filter_table().end()) throw ValueError(fmt::format("the filter \"{}\" is not allowed", name));
  return found->second;
}

FilterOptionKind get_kind(const AllowedFilter& filter, const std::string& option) {
  if (std::ranges::find(common_options, option) != common_options.end()) return FilterOptionKind::plain;
  const auto found = filter.options.find(option);
  return found == filter.options.end() ? FilterOptionKind::refused : found->second;
}

void check_option(const FilterCall& call, const AllowedFilter& filter, const FilterOption& option) {
  if (option.name.empty()) {
    // Which option a position means differs between versions of FFmpeg.
    if (!filter.only_plain) {
      throw ValueError(
          fmt::format("name the options of the filter \"{0}\", as in {0}=option={1}", call.name, option.value));
    }
    return;
  }
  const FilterOptionKind kind = get_kind(filter, option.name);
  if (kind == FilterOptionKind::refused) {
    throw ValueError(fmt::format("the option \"{}\" of the filter \"{}\" is not allowed", option.name, call.name));
  }
  if (kind == FilterOptionKind::reads_file) {
    if (const std::string fault = find_file_fault(option.value); !fault.empty()) throw ValueError(fault);
  }
}

bool sends_commands(const FilterCall& call) { return call.name == "sendcmd" || call.name == "asendcmd"; }

/// Commands set options while the graph runs, those of files included.
void check_commands(const std::vector<FilterCall>& calls) {
  if (std::ranges::none_of(calls, sends_commands)) return;
  for (const FilterCall& call : calls) {
    if (sends_commands(call) || get_allowed(call.name).only_plain) continue;
    throw ValueError(
        fmt::format("the filter \"{}\" cannot be used beside sendcmd, which could change its files", call.name));
  }
}

}  // namespace

std::string read_filters(const Settings& settings) {
  std::string filters = settings.text("filters");
  const std::string fault = filters.empty() ? "" : find_filter_fault(filters);
  if (!fault.empty()) settings.refuse("filters", fault);
  return filters;
}

std::string find_filter_fault(std::string_view graph) {
  try {
    const std::vector<FilterCall> calls = read_filter_graph(graph);
    for (const FilterCall& call : calls) {
      const AllowedFilter& filter = get_allowed(call.name);
      for (const FilterOption& option : call.options) check_option(call, filter, option);
    }
    check_commands(calls);
  } catch (const ValueError& failure) {
    return failure.what();
  }
  return {};
}

std::string find_file_fault(const std::string& path) {
  // Anything else could be a URL.
  if (!path.starts_with('/')) return fmt::format("\"{}\" is not an absolute path", path);
  std::error_code error;
  const fs::path resolved = fs::canonical(path, error);
  if (error) return fmt::format("{}: {}", path, error.message());
  if (!fs::is_regular_file(resolved, error) && !fs::is_directory(resolved, error)) {
    return fmt::format("{} is not a file", path);
  }
  const std::vector<std::string> roots =
      Config::FILE_ROOTS.empty() ? std::vector{Config::UPLOAD_DIRECTORY} : Config::FILE_ROOTS;
  if (std::ranges::any_of(roots, [&](const std::string& root) { return is_below(resolved, root); })) return {};
  return fmt::format("{} is not below {} (--file-root)", path, fmt::join(roots, " or "));
}

}  // namespace weir
