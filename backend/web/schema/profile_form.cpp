#include "backend/web/schema/profile_form.h"

#include <nlohmann/json.hpp>

#include "backend/collaborators/jsonconf.h"
#include "backend/web/schema/form_check.h"

namespace weir {

Value prepare_profile_form(const Value& document, const Value& posted, FormFindings& warnings) {
  JsonConf changed;
  if (!document.is_null()) changed.replace_document(document);
  if (!changed.load_json_conf(posted)) throw FormError({as_finding(changed.get_error_msg())});
  Value members = changed.take_document();
  FormReport report;
  check_profile_members(members, document.is_null() ? TouchedKeys() : TouchedKeys(posted), report);
  if (!report.findings.empty()) throw FormError(report.findings, report.warnings);
  warnings = std::move(report.warnings);
  changed.replace_document(std::move(members));
  Value form = Value::object();
  for (const auto& [key, value] : posted.items()) form[key] = changed.get_json_conf(key);
  return form;
}

}  // namespace weir
