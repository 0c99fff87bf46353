#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "backend/base/value.h"
#include "backend/web/schema/form_findings.h"

namespace weir {

/// The members of a document that a form sets.
class TouchedKeys {
 public:
  /// All of them.
  TouchedKeys() : all_(true) {}
  explicit TouchedKeys(const Value& form);

  /// Whether the form sets the member, or one that it is part of.
  bool sets(std::string_view key) const;
  /// The same, or one that is part of it.
  bool concerns(std::string_view key) const;

 private:
  bool all_ = false;
  std::unordered_set<std::string> keys_;
  std::unordered_set<std::string> above_;  ///< the keys of the mappings that hold them
};

struct FormReport {
  FormFindings findings;  ///< why the form is refused
  FormFindings warnings;  ///< what is kept, but strange; the first 50
};

/// Checks what a form makes of a stream's document, before it is numbered and normalised, as far as it concerns the
/// form: what was stored before is left alone. What its readers take in one form only is stored in it.
void check_stream_members(Value& document, const TouchedKeys& touched, FormReport& report);

/// The same for a profile.
void check_profile_members(Value& document, const TouchedKeys& touched, FormReport& report);

}  // namespace weir
