#pragma once

#include "backend/base/value.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

/// Throws `HttpError` with 400 when the form sets "id" or "status", which the server keeps.
void refuse_kept_members(const Value& form);

/// The form of a new stream, with what every new stream has: "status" is "stopped", and speed and memory have the
/// default bounds unless they are given. Throws `HttpError` as `refuse_kept_members`.
Value new_stream_form(Value form);

/// Tries the form on a scratch document, as the manager is going to apply it. Throws `HttpError` with 400 and the
/// reason.
void try_new_stream(const Value& form);
/// The same on a copy of a stream's document, which stays whole when the form is rejected.
void try_change(const StreamConfig& document, const Value& form);

}  // namespace weir
