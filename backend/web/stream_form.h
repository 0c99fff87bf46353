#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/profile.h"
#include "backend/platform/async.h"
#include "backend/stream/config/stream_config.h"
#include "backend/web/schema/form_findings.h"

namespace weir {

// What a form makes of a document is tried on a copy, saved and loaded again: what is accepted is the same document
// after every restart. A form is prepared in parts, so that a large one does not hold up the streams; nobody else may
// change documents or profiles meanwhile. Every refusal is a `FormError` with the findings. What was stored before is
// left alone: only what the form touches, or spoils, is a finding.

/// What else is known of a form that is accepted.
struct FormDetails {
  FormFindings warnings;
  std::vector<std::string> command;   ///< the transcoder's, as it would be made without a probe
  std::vector<std::string> restarts;  ///< the next five times of the timetable, local with their offsets
  std::vector<std::string> switches;  ///< the same for the return to a better input
};

/// The form for `StreamManager::add_stream` that a posted one makes: complete, its inputs numbered from 0. `details`
/// may be null, and outlives the call.
Async<Value> prepare_new_stream(long long id, Value posted, FormDetails* details = nullptr);

/// The form for `StreamManager::save_stream` that a posted one makes of the stream's document; secrets that it has
/// masked stay as they are.
Async<Value> prepare_change(std::shared_ptr<const StreamConfig> conf, Value posted, FormDetails* details = nullptr);

/// The document, as it is going to be saved, that an imported one makes, which has neither "id" nor "status". `present`
/// is the stream that has the id, or null: secrets that are masked stay as they are there. With `profile` the stream's
/// profile is going to be that one. Of a document that changes nothing only what the
/// profile spoils is refused.
Async<Value> prepare_import(long long id, Value document, std::shared_ptr<const StreamConfig> present,
                            std::shared_ptr<const ProfileDraft> profile);

/// Tries a changed profile on the document of a stream that uses it.
Async<> try_profile(std::shared_ptr<const StreamConfig> conf, std::shared_ptr<const ProfileDraft> draft);

}  // namespace weir
