#include "backend/base/time_text.h"

#include <fmt/core.h>

namespace weir {

std::string to_iso8601(WallTime time) {
  using namespace std::chrono;
  const sys_time<milliseconds> point = floor<milliseconds>(time);
  const sys_days day = floor<days>(point);
  const year_month_day date(day);
  const hh_mm_ss clock(point - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count(), clock.subseconds().count());
}

}  // namespace weir
