#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "backend/web/schema/member_rule.h"

namespace weir {

/// The rules as the document is nested.
struct RuleNode {
  /// Those of the member itself; several where outputs of different protocols have different members of one name.
  std::vector<const MemberRule*> rules;
  std::map<std::string, std::unique_ptr<RuleNode>, std::less<>> members;
  std::unique_ptr<RuleNode> numbered;  ///< of members whose names are numbers; null where there are none

  /// The node below; null for a name that no rule has.
  const RuleNode* find(std::string_view name) const;
  /// The rule of an output of the protocol, and of what is no output; null when none has it.
  const MemberRule* rule(std::string_view protocol = {}) const;
};

/// Of a stream's and of a profile's document, the options of inputs included.
const RuleNode& stream_rule_tree();
const RuleNode& profile_rule_tree();

/// The rule of a dotted key of a document; null when there is none.
const MemberRule* find_stream_rule(std::string_view key);

}  // namespace weir
