#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "backend/platform/files.h"
#include "backend/web/schema/member_rule.h"

namespace weir {
namespace {

/// What stands in the row of a member: all but the words for its type.
std::vector<std::string> parts_of(const MemberRule& rule) {
  std::vector<std::string> parts{
      fmt::format("| {} | {} |", rule.required ? "required" : rule.fallback, rule.description)};
  if (!rule.choices.empty()) parts.push_back(fmt::format("`{}`", fmt::join(split_words(rule.choices), "`, `")));
  if (!rule.unit.empty()) parts.push_back(fmt::format(", {} |", rule.unit));
  if (rule.max) parts.push_back(fmt::format("{}", *rule.max));
  if (rule.key.starts_with("output.*.") && !rule.protocols.empty())
    parts.push_back(fmt::format("| {} |", rule.protocols));
  return parts;
}

bool describes(const std::string& row, const MemberRule& rule) {
  const std::string member = row.substr(3, row.find('`', 3) - 3);
  return ("." + std::string(rule.key)).ends_with("." + member) &&
         std::ranges::all_of(parts_of(rule),
                             [&](const std::string& part) { return row.find(part) != std::string::npos; });
}

TEST(MemberDocsTest, EachMemberHasItsRowInTheDocument) {
  std::istringstream page(read_file(WEIR_DOCS "/stream-document.md", 1 << 20));
  std::vector<std::string> rows;
  for (std::string line; std::getline(page, line);)
    if (line.starts_with("| `")) rows.push_back(line);
  for (const MemberRule& rule : stream_rules()) {
    const bool is_mapping = rule.kind == MemberKind::mapping && !rule.key.ends_with("options");
    if (is_mapping || rule.kind == MemberKind::numbered) continue;
    EXPECT_TRUE(std::ranges::any_of(rows, [&](const std::string& row) { return describes(row, rule); }))
        << rule.key
        << " has to have a row in docs/stream-document.md with: " << fmt::format("{}", fmt::join(parts_of(rule), ", "));
  }
}

}  // namespace
}  // namespace weir
