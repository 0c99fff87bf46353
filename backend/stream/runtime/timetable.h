#pragma once

#include <ctime>
#include <optional>

#include "backend/collaborators/jsonconf.h"
#include "backend/collaborators/utils.h"
#include "backend/platform/clock.h"

namespace weir {

/// When one duty of a stream is due: at these minutes of these hours on these weekdays, 0 being Monday.
struct Timetable {
  IntegerList minutes;
  IntegerList hours;
  IntegerList weekdays;

  bool matches(const std::tm& local) const;
};

/// Reads the members "minutes" (minute 0 where absent), "hours" and "weekdays" under the key. Throws what `str2intl`
/// does.
Timetable read_timetable(const JsonConf& conf, std::string_view key);

/// The first full minute after `time` at which the duty is due; nothing when it never is. A local minute that does not
/// exist (summer time begins) is passed over, one that comes twice counts twice.
std::optional<WallTime> next_time(const Timetable& timetable, WallTime time);

/// The local time of day.
std::tm local_time(WallTime time);

}  // namespace weir
