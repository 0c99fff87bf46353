#include "backend/base/time_text.h"

#include <fmt/core.h>

#include <cstdlib>
#include <ctime>

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

std::string to_local_iso8601(WallTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  const long offset = std::abs(local.tm_gmtoff) / 60;
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}{:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1,
                     local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, local.tm_gmtoff < 0 ? '-' : '+',
                     offset / 60, offset % 60);
}

}  // namespace weir
