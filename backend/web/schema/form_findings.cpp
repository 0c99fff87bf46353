#include "backend/web/schema/form_findings.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/log.h"

namespace weir {

namespace {

std::string show(const Finding& finding) {
  return finding.key.empty() ? finding.message : finding.key + ": " + finding.message;
}

std::string describe(const FormFindings& findings) {
  const std::string first = show(findings.at(0));
  return findings.size() == 1 ? first : fmt::format("{} (and {} more)", first, findings.size() - 1);
}

bool is_key(std::string_view text) { return !text.empty() && text.find_first_of(" \"/:") == std::string_view::npos; }

}  // namespace

Value to_json_value(const FormFindings& findings) {
  Value list = Value::array();
  for (const auto& [key, message] : findings)
    list.push_back(Value{{"key", mask_passwords(key)}, {"message", mask_passwords(message)}});
  return list;
}

FormError::FormError(FormFindings findings, FormFindings warnings)
    : HttpError(400, describe(findings)), findings_(std::move(findings)), warnings_(std::move(warnings)) {}

Response FormError::response() const {
  Value body{{"error", mask_passwords(what())}, {"findings", to_json_value(findings_)}};
  if (!warnings_.empty()) body["warnings"] = to_json_value(warnings_);
  return json_response(body, status());
}

Finding as_finding(const std::string& refusal) {
  constexpr std::string_view invalid_key = "Invalid key ";
  if (refusal.starts_with(invalid_key))
    return {refusal.substr(invalid_key.size()), "leads through a value that is not a mapping, or has an empty part"};
  const std::size_t colon = refusal.find(": ");
  if (colon == std::string::npos || !is_key(std::string_view(refusal).substr(0, colon))) return {"", refusal};
  return {refusal.substr(0, colon), refusal.substr(colon + 2)};
}

}  // namespace weir
