#pragma once

#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/web/response.h"

namespace weir {

/// What is wrong with a member of a form, or strange.
struct Finding {
  std::string key;  ///< dotted; empty: of the whole document
  std::string message;

  bool operator==(const Finding&) const = default;
};
using FormFindings = std::vector<Finding>;

/// [{"key": "output.0.port", "message": "…"}], passwords masked.
Value to_json_value(const FormFindings& findings);

/// Refuses a form: 400 {"error": "…", "findings": […]}.
class FormError : public HttpError {
 public:
  /// At least one finding.
  explicit FormError(FormFindings findings, FormFindings warnings = {});
  Response response() const override;
  const FormFindings& findings() const noexcept { return findings_; }
  const FormFindings& warnings() const noexcept { return warnings_; }

 private:
  FormFindings findings_;
  FormFindings warnings_;
};

/// The finding that a refusal is: "output.0.port: missing" has a key.
Finding as_finding(const std::string& refusal);

}  // namespace weir
