#include "backend/web/schema/form_check.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/base/text.h"
#include "backend/base/text_form.h"
#include "backend/web/schema/likely_name.h"
#include "backend/web/schema/member_check.h"
#include "backend/web/schema/rule_tree.h"
#include "backend/web/schema/stream_checks.h"

namespace weir {

namespace {

constexpr std::size_t max_warnings = 50;

std::string join(const std::string& key, std::string_view name) {
  return key.empty() ? std::string(name) : fmt::format("{}.{}", key, name);
}

std::vector<std::string> names_of(const RuleNode& node, std::string_view protocol) {
  std::vector<std::string> names;
  for (const auto& [name, below] : node.members)
    if (below->rule(protocol)) names.push_back(name);
  return names;
}

/// Goes through a document and the rules side by side.
class MemberWalk {
 public:
  MemberWalk(const TouchedKeys& touched, FormReport& report) : touched_(touched), report_(report) {}

  void visit_members(Value& mapping, const RuleNode& node, const std::string& key, bool touched,
                     std::string_view protocol = {}) {
    for (auto& [name, value] : mapping.get_ref<Value::object_t&>()) {
      const std::string below_key = join(key, name);
      const RuleNode* below = node.find(name);
      const MemberRule* rule = below ? below->rule(protocol) : nullptr;
      if (rule)
        visit(value, *below, *rule, below_key, touched, protocol);
      else if (touched || touched_.concerns(below_key))
        report_unknown(value, node, below_key, name, protocol, below != nullptr);
    }
    if (touched || touched_.concerns(key)) find_missing(mapping, node, key, touched, protocol);
  }

 private:
  void visit(Value& value, const RuleNode& node, const MemberRule& rule, const std::string& key, bool touched,
             std::string_view protocol) {
    touched = touched || touched_.sets(key);
    if (touched) {
      if (std::string fault = find_member_fault(rule, value); !fault.empty()) {
        report_.findings.push_back({key, std::move(fault)});
        return;
      }
      convert_member(rule, value);
    }
    if (rule.key == "output.*" && value.is_object()) {
      visit_output(value, node, key, touched);
    } else if (value.is_array() && node.numbered) {
      for (std::size_t i = 0; i < value.size(); ++i)
        visit(value[i], *node.numbered, *node.numbered->rule(), join(key, std::to_string(i)), touched, protocol);
    } else if (value.is_object() && (!node.members.empty() || node.numbered)) {
      visit_members(value, node, key, touched, protocol);
    }
  }

  // Which members an output has depends on its protocol.
  void visit_output(Value& output, const RuleNode& node, const std::string& key, bool touched) {
    touched = touched || touched_.sets(key + ".protocol");
    const Value protocol = member(output, "protocol");
    const std::vector<std::string> known = split_words(output_protocols);
    const bool is_known = protocol.is_string() && std::ranges::find(known, protocol.get<std::string>()) != known.end();
    if (is_known) return visit_members(output, node, key, touched, protocol.get<std::string>());
    if (!touched) return;
    const std::string fault = is_blank(protocol) ? "" : find_member_fault(*node.find("protocol")->rule(), protocol);
    report_.findings.push_back(
        {key + ".protocol", fault.empty() ? fmt::format("missing; use one of {}", output_protocols) : fault});
  }

  void report_unknown(const Value& value, const RuleNode& node, const std::string& key, const std::string& name,
                      std::string_view protocol, bool of_other_protocol) {
    const bool is_option = key.starts_with("input.") && key.find(".options.") != std::string::npos;
    if (is_option && is_blank(value)) return;
    if (!is_option && report_.warnings.size() >= max_warnings) return;
    std::string message = is_option ? "not an allowed input option" : "unknown; kept, and not used";
    if (of_other_protocol) message = fmt::format("not used by {} outputs", protocol);
    const std::string likely = of_other_protocol ? "" : find_likely_name(name, names_of(node, protocol));
    if (!likely.empty()) message += fmt::format("; did you mean \"{}\"?", likely);
    (is_option ? report_.findings : report_.warnings).push_back({key, std::move(message)});
  }

  // Inputs inherit: what they need is looked at between them.
  void find_missing(const Value& mapping, const RuleNode& node, const std::string& key, bool touched,
                    std::string_view protocol) {
    for (const auto& [name, below] : node.members) {
      const MemberRule* rule = below->rule(protocol);
      const bool wanted = rule && rule->required && rule->kind != MemberKind::url;
      if (!wanted || !is_blank(member(mapping, name)) || !(touched || touched_.sets(join(key, name)))) continue;
      // An SRT listener has a default.
      if (protocol == "srt" && name == "hostname" && member(mapping, "mode") == "listener") continue;
      const bool caller = protocol == "srt" && name == "hostname";
      report_.findings.push_back(
          {join(key, name), caller ? "missing; a caller needs the host that it calls" : "missing"});
    }
  }

  const TouchedKeys& touched_;
  FormReport& report_;
};

}  // namespace

TouchedKeys::TouchedKeys(const Value& form) {
  for (const auto& [key, value] : form.items()) {
    keys_.insert(key);
    for (std::size_t dot = key.find('.'); dot != std::string::npos; dot = key.find('.', dot + 1))
      above_.insert(key.substr(0, dot));
  }
}

bool TouchedKeys::sets(std::string_view key) const {
  if (all_) return true;
  for (std::size_t end = key.size();; end = key.rfind('.', end - 1)) {
    if (end == std::string_view::npos) return false;
    if (keys_.contains(std::string(key.substr(0, end)))) return true;
    if (end == 0) return false;
  }
}

bool TouchedKeys::concerns(std::string_view key) const { return above_.contains(std::string(key)) || sets(key); }

void check_stream_members(Value& document, const TouchedKeys& touched, FormReport& report) {
  MemberWalk(touched, report).visit_members(document, stream_rule_tree(), "", touched.sets(""));
  check_between_members(document, touched, report.findings);
}

void check_profile_members(Value& document, const TouchedKeys& touched, FormReport& report) {
  MemberWalk(touched, report).visit_members(document, profile_rule_tree(), "", touched.sets(""));
  check_speed_band(document, touched, report.findings);
}

}  // namespace weir
