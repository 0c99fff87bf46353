#pragma once

#include "backend/base/value.h"
#include "backend/web/schema/form_check.h"

namespace weir {

// What members of a document have to fulfil together. Only what concerns the form is looked at.

/// The band in which the speed may lie is not empty.
void check_speed_band(const Value& document, const TouchedKeys& touched, FormFindings& findings);

/// The inputs have addresses that FFmpeg may open, "hls" is output 0, files lie where they may, the speed has a band.
void check_between_members(const Value& document, const TouchedKeys& touched, FormFindings& findings);

}  // namespace weir
