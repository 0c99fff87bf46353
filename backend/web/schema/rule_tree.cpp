#include "backend/web/schema/rule_tree.h"

#include <algorithm>

#include "backend/base/numbers.h"
#include "backend/collaborators/input_rules.h"

namespace weir {

namespace {

RuleNode& node_at(RuleNode& root, std::string_view key) {
  RuleNode* at = &root;
  while (!key.empty()) {
    const std::size_t dot = std::min(key.find('.'), key.size());
    const std::string_view name = key.substr(0, dot);
    std::unique_ptr<RuleNode>& next = name == "*" ? at->numbered : at->members[std::string(name)];
    if (!next) next = std::make_unique<RuleNode>();
    at = next.get();
    key.remove_prefix(std::min(dot + 1, key.size()));
  }
  return *at;
}

RuleNode make_tree(std::span<const MemberRule> rules) {
  RuleNode root;
  for (const MemberRule& rule : rules) node_at(root, rule.key).rules.push_back(&rule);
  return root;
}

RuleNode make_stream_tree() {
  static constexpr MemberRule option{
      .key = "input.*.options.*", .kind = MemberKind::option, .title = "Option", .description = "as FFmpeg has it"};
  static constexpr MemberRule headers{.key = "input.*.options.headers",
                                      .kind = MemberKind::option,
                                      .title = "Headers",
                                      .description = "of HTTP requests, one a line"};
  RuleNode root = make_tree(stream_rules());
  const auto add = [&](std::string_view name) {
    const MemberRule& rule = name == "headers" ? headers : option;
    node_at(root, "input.*.options." + std::string(name)).rules.push_back(&rule);
  };
  std::ranges::for_each(input_reader_options, add);
  std::ranges::for_each(input_adjustment_options, add);
  return root;
}

}  // namespace

const RuleNode* RuleNode::find(std::string_view name) const {
  if (const auto found = members.find(name); found != members.end()) return found->second.get();
  return is_number(name) ? numbered.get() : nullptr;
}

const MemberRule* RuleNode::rule(std::string_view protocol) const {
  for (const MemberRule* rule : rules)
    if (has_protocol(*rule, protocol)) return rule;
  return nullptr;
}

const RuleNode& stream_rule_tree() {
  static const RuleNode tree = make_stream_tree();
  return tree;
}

const RuleNode& profile_rule_tree() {
  static const RuleNode tree = make_tree(profile_rules());
  return tree;
}

const MemberRule* find_stream_rule(std::string_view key) {
  const RuleNode* at = &stream_rule_tree();
  while (at && !key.empty()) {
    const std::size_t dot = std::min(key.find('.'), key.size());
    at = at->find(key.substr(0, dot));
    key.remove_prefix(std::min(dot + 1, key.size()));
  }
  return at && !at->rules.empty() ? at->rules.front() : nullptr;
}

}  // namespace weir
