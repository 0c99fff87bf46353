#pragma once

#include <string>

#include "backend/platform/clock.h"

namespace weir {

/// A time as JSON shows it: ISO 8601 in UTC with milliseconds, "2026-11-23T19:12:03.250Z".
std::string to_iso8601(WallTime time);

/// The local time with its offset, without fractions of a second: "2026-11-23T20:24:25+01:00".
std::string to_local_iso8601(WallTime time);

}  // namespace weir
