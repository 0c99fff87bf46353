#include "backend/web/form_preview.h"

#include <nlohmann/json.hpp>

#include "backend/web/schema/command_trial.h"
#include "backend/web/schema/rule_tree.h"

namespace weir {

bool asks_for_preview(const Request& request) { return request.query("check") == "1"; }

Response preview_response(const Value& posted, const FormDetails& details, std::string_view later) {
  Value effect = Value::object();
  for (const auto& [key, value] : posted.items()) {
    const MemberRule* rule = find_stream_rule(key);
    effect[key] = rule && rule->at_once ? "at once" : later;
  }
  return json_response({{"accepted", true},
                        {"findings", Value::array()},
                        {"warnings", to_json_value(details.warnings)},
                        {"command", mask_command(details.command)},
                        {"takes_effect", effect},
                        {"timetable", {{"restart", details.restarts}, {"switch", details.switches}}}});
}

Response preview_response(const FormFindings& warnings) {
  return json_response({{"accepted", true}, {"findings", Value::array()}, {"warnings", to_json_value(warnings)}});
}

Response preview_response(const FormError& refusal) {
  return json_response({{"accepted", false},
                        {"findings", to_json_value(refusal.findings())},
                        {"warnings", to_json_value(refusal.warnings())}});
}

}  // namespace weir
