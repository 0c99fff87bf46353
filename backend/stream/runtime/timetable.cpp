#include "backend/stream/runtime/timetable.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

namespace weir {

bool Timetable::matches(const std::tm& local) const {
  const int weekday = (local.tm_wday + 6) % 7;  // the C library's week begins on Sunday
  return minutes.contains(local.tm_min) && hours.contains(local.tm_hour) && weekdays.contains(weekday);
}

Timetable read_timetable(const JsonConf& conf, std::string_view key) {
  Timetable timetable;
  timetable.minutes = str2intl(conf.get_json_conf(fmt::format("{}.minutes", key), "0"));
  timetable.hours = str2intl(conf.get_json_conf(fmt::format("{}.hours", key)));
  timetable.weekdays = str2intl(conf.get_json_conf(fmt::format("{}.weekdays", key)));
  return timetable;
}

std::tm local_time(WallTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return local;
}

}  // namespace weir
