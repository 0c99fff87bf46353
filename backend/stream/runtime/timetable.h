#pragma once

#include <ctime>

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

/// The local time of day.
std::tm local_time(WallTime time);

}  // namespace weir
