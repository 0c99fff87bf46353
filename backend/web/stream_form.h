#pragma once

#include <memory>

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"
#include "backend/platform/async.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

// What a form makes of a document is tried on a copy, saved and loaded again: what is accepted is the same document
// after every restart. A form is prepared in parts, so that a large one does not hold up the streams; nobody else may
// change documents or profiles meanwhile. Every refusal is an `HttpError` with 400 and the reason.

/// The form for `StreamManager::add_stream` that a posted one makes: complete, its inputs numbered from 0.
Async<Value> prepare_new_stream(long long id, Value posted);

/// The form for `StreamManager::save_stream` that a posted one makes of the stream's document; secrets that it has
/// masked stay as they are.
Async<Value> prepare_change(std::shared_ptr<const StreamConfig> conf, Value posted);

/// Tries a changed profile on the document of a stream that uses it.
Async<> try_profile(std::shared_ptr<const StreamConfig> conf, std::shared_ptr<const ProfileDraft> draft);

}  // namespace weir
