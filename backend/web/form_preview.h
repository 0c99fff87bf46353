#pragma once

#include <string_view>

#include "backend/base/value.h"
#include "backend/web/response.h"
#include "backend/web/schema/form_findings.h"
#include "backend/web/stream_form.h"

namespace weir {

// What "?check=1" answers in place of doing it: {"accepted", "findings", "warnings", "command", "takes_effect"}.

/// Of a form that would be accepted. `later` says when a change takes effect that waits for the transcoder's next run.
Response preview_response(const Value& posted, const FormDetails& details, std::string_view later);

/// Of one that would be refused.
Response preview_response(const FormError& refusal);

}  // namespace weir
