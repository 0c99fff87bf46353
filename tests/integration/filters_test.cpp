#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <regex>
#include <sstream>

#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"
#include "backend/services/transcoder/filters/filter_graph.h"
#include "backend/services/transcoder/filters/filter_table.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// What documents may use is compared with the FFmpeg that is installed.
class FiltersTest : public testing::Test {
 protected:
  CommandResult run(std::vector<std::string> arguments) {
    return test::run(loop_, run_command(std::move(arguments), 50));
  }

  Loop loop_;
};

/// "  name  <type>  flags description" of a filter's options.
struct ListedOption {
  std::string name;
  std::string type;
  std::string line;
};

/// The options by the name of their class, which may stand for several filters: "(h|v)stack", "bass/lowshelf".
std::map<std::string, std::vector<ListedOption>> read_option_lists(const std::string& help) {
  static const std::regex heading("^(\\S+) AVOptions:$");
  static const std::regex option("^ +(\\S+) +<(\\w+)> .*$");
  std::map<std::string, std::vector<ListedOption>> lists;
  std::string current;
  std::smatch match;
  for (const std::string& line : split_lines(help)) {
    if (std::regex_match(line, match, heading)) current = match[1];
    if (std::regex_match(line, match, option)) lists[current].push_back({match[1], match[2], line});
  }
  return lists;
}

bool is_of_class(const std::string& filter, const std::string& name) {
  static const std::regex special("[^A-Za-z0-9_()|/]");
  if (std::regex_search(name, special)) return false;
  std::string pattern = std::regex_replace(name, std::regex("\\)"), ")?");
  std::ranges::replace(pattern, '/', '|');
  return std::regex_match(filter, std::regex(pattern));
}

TEST_F(FiltersTest, EveryOptionOfAnAllowedFilterIsKnownAndThoseOfFilesAreGuarded) {
  const auto lists = read_option_lists(run({Config::FFMPEG, "-hide_banner", "-h", "full"}).standard_output);
  static const std::regex names_file("file|path|librar|binary", std::regex::icase);
  for (const auto& [name, filter] : get_filter_table()) {
    for (const auto& [class_name, options] : lists) {
      if (!is_of_class(name, class_name)) continue;
      for (const ListedOption& option : options) {
        const auto known = filter.options.find(option.name);
        if (known == filter.options.end()) ADD_FAILURE() << name << " has the option " << option.name;
        const bool text = option.type == "string" || option.type == "binary";
        if (known == filter.options.end() || !text || !std::regex_search(option.line, names_file)) continue;
        EXPECT_NE(known->second, FilterOptionKind::plain) << name << ": " << option.line;
      }
    }
  }
}

using Setting = std::array<std::string, 3>;  ///< filter, option, value

/// "[Parsed_scale_0 @ 0x55d0] Setting 'w' to value '640'", also "[scale@small @ …".
std::vector<Setting> read_settings_of(const std::string& log) {
  static const std::regex setting("^\\[(?:Parsed_(\\w+)_\\d+|(\\w+)@\\w+) @ \\w+\\] Setting '(.*?)' to value '(.*)'$");
  std::vector<Setting> settings;
  std::smatch match;
  for (const std::string& line : split_lines(log))
    if (std::regex_match(line, match, setting))
      settings.push_back({match[1].str() + match[2].str(), match[3], match[4]});
  return settings;
}

TEST_F(FiltersTest, AreReadAsFFmpegReadsThem) {
  for (const std::string graph : {
           "testsrc=s=64x64:d=1,scale=32:h=-2",
           " testsrc2 = 64x64 : r = 5 [a\\]]; [a\\]] scale@small=32 : '32' : flags = 'lanczos' ['x]\\'] ;['x]\\']hflip",
           "color=c=r'e'd:s=64x64,drawtext=text='a, b;[c]\\:d'\\''e'\\\\\\'f:x=1",
           "testsrc=d=1:s=64x64,drawtext=text=\\ a\\, \\\\  :fontsize=10:",
           "testsrc=s=64x64,geq='p(X,Y)':128:cr='12'8,split[s][t];[s][t]hstack=inputs=2",
           "testsrc=s=64x64,drawtext=text='%{pts\\:hms}  ':fontsize=(h/4)",
           "sine=d=1,aeval=val(0)|'-val(0)':c=stereo,pan=stereo|c0=c1|c1=c0",
           "testsrc=s=64x64,drawtext=text=\\'it is \\':y=1",
       }) {
    const CommandResult result = run({Config::FFPROBE, "-hide_banner", "-v", "debug", "-f", "lavfi", "-i", graph});
    std::vector<Setting> theirs = read_settings_of(result.standard_error);
    std::vector<Setting> ours;
    for (const FilterCall& call : read_filter_graph(graph))
      for (const FilterOption& option : call.options) ours.push_back({call.name, option.name, option.value});
    // FFmpeg shows the names of options that are given by position.
    for (std::size_t i = 0; i < std::min(ours.size(), theirs.size()); ++i)
      if (ours[i][1].empty()) theirs[i][1].clear();
    EXPECT_EQ(ours, theirs) << graph << result.standard_error;
    EXPECT_EQ(result.exit_status, 0) << graph << result.standard_error;
  }
}

}  // namespace
}  // namespace weir
