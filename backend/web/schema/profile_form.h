#pragma once

#include "backend/base/value.h"
#include "backend/web/schema/form_findings.h"

namespace weir {

/// The form that makes of a profile's document what the posted one does, its values stored as their readers take them.
/// `document` is null for a new profile. Throws `FormError`.
Value prepare_profile_form(const Value& document, const Value& posted, FormFindings& warnings);

}  // namespace weir
