#pragma once

#include <string_view>

#include "backend/base/value.h"
#include "backend/web/request.h"
#include "backend/web/response.h"
#include "backend/web/schema/form_findings.h"
#include "backend/web/stream_form.h"

namespace weir {

/// Whether the request says "?check=1".
bool asks_for_preview(const Request& request);

// What "?check=1" answers in place of doing it: {"accepted", "findings", "warnings", "command", "takes_effect",
// "timetable"}.

/// Of a form that would be accepted. `later` says when a change takes effect that waits for the transcoder's next run.
Response preview_response(const Value& posted, const FormDetails& details, std::string_view later);

/// Of one whose changes have no command and no moment of their own.
Response preview_response(const FormFindings& warnings);

/// Of one that would be refused.
Response preview_response(const FormError& refusal);

}  // namespace weir
