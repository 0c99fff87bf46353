#pragma once

#include "backend/web/now/sampler.h"
#include "backend/web/publishing/viewers.h"
#include "backend/web/stream_records.h"

namespace weir {

// What a stream's record shows of the present beside "cycle"; docs/now.md lists it.

/// "measured". The sampler outlives the records.
RecordMember make_measured_member(const Sampler& sampler);
/// "inputs": each one's address, whether it is in use, and what its latest probe told.
RecordMember make_inputs_member();
/// "limits": what the monitors of the running cycle hold it to, and how many viewers may come.
RecordMember make_limits_member(const ViewerLimits& viewers);
/// "timetable": when it restarts and when it looks for a better input next.
RecordMember make_timetable_member();
/// "tags"
RecordMember make_tags_member();
/// "profile": the id of the profile that the document names; null for none.
RecordMember make_profile_member();

}  // namespace weir
