#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "backend/platform/files.h"
#include "backend/web/schema/member_rule.h"

namespace weir {
namespace {

using Kind = MemberKind;

std::string describe_kind(const MemberRule& rule) {
  static const std::map<Kind, const char*> kinds{
      {Kind::text, "text"},        {Kind::name, "text"},           {Kind::digits, "whole number"},
      {Kind::word, "word"},        {Kind::whole, "whole number"},  {Kind::number, "number"},
      {Kind::flag, "flag"},        {Kind::loop, "number or flag"}, {Kind::url, "text"},
      {Kind::host, "text"},        {Kind::port, "port"},           {Kind::timetable, "text: `0,15,30-45` or `*`"},
      {Kind::map, "text or list"}, {Kind::box, "mapping or text"}, {Kind::tags, "list of texts"},
      {Kind::mapping, "mapping"},  {Kind::numbered, "mapping"},    {Kind::ladder, "mapping `0`, `1`, … or list"}};
  if (!rule.choices.empty()) return fmt::format("`{}`", fmt::join(split_words(rule.choices), "`, `"));
  return kinds.at(rule.kind);
}

std::string describe_bounds(const MemberRule& rule) {
  const bool text = rule.kind == Kind::text || rule.kind == Kind::name || rule.kind == Kind::url;
  if (!rule.max) return {};
  if (!text) return fmt::format(" {}-{}", rule.min.value_or(0), *rule.max);
  return rule.min ? fmt::format(" of {} to {} bytes", *rule.min, *rule.max)
                  : fmt::format(" of at most {} bytes", *rule.max);
}

std::string make_row(const MemberRule& rule, std::string_view member, bool protocols) {
  const std::string unit = rule.unit.empty() ? "" : fmt::format(", {}", rule.unit);
  const std::string fallback(rule.required ? "required" : rule.fallback);
  return fmt::format("| `{}` {}| {}{}{} | {} | {} |\n", member,
                     protocols ? fmt::format("| {} ", rule.protocols.empty() ? "all" : rule.protocols) : "",
                     describe_kind(rule), describe_bounds(rule), unit, fallback, rule.description);
}

// The members below the prefix that no other table has.
std::string make_table(const std::string& prefix, const std::vector<std::string>& others) {
  const bool protocols = prefix == "output.*.";
  std::string table = protocols ? "| Member | Outputs | Type | Default | Meaning |\n|---|---|---|---|---|\n"
                                : "| Member | Type | Default | Meaning |\n|---|---|---|---|\n";
  for (const MemberRule& rule : stream_rules()) {
    const bool of_other = std::ranges::any_of(others, [&](const std::string& other) {
      return other.starts_with(prefix) && other != prefix && (std::string(rule.key) + ".").starts_with(other);
    });
    const bool holds_others =
        rule.kind == Kind::numbered || (rule.kind == Kind::mapping && !rule.key.ends_with("options"));
    if (rule.key.starts_with(prefix) && !of_other && !holds_others)
      table += make_row(rule, rule.key.substr(prefix.size()), protocols);
  }
  return table;
}

TEST(MemberDocsTest, TheTablesOfTheDocumentArePutTogetherFromTheRules) {
  const std::vector<std::string> sections{"",       "input.*.",  "video.",   "video.renditions.*.",
                                          "audio.", "subtitle.", "output.*."};
  const std::string page = read_file(WEIR_DOCS "/stream-document.md", 1 << 20);
  for (const std::string& section : sections) {
    const std::string table = make_table(section, sections);
    EXPECT_NE(page.find("\n" + table), std::string::npos) << "docs/stream-document.md has to hold\n" << table << "END";
  }
}

}  // namespace
}  // namespace weir
