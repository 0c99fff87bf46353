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

std::optional<WallTime> next_time(const Timetable& timetable, WallTime time) {
  using std::chrono::minutes;
  // Offsets from UTC are multiples of it and change only at multiples of it: within one the local hour is the same.
  constexpr minutes block(15);
  constexpr minutes horizon = std::chrono::days(9);  // a week, and days that summer time makes longer
  if (timetable.minutes.empty() || timetable.hours.empty() || timetable.weekdays.empty()) return std::nullopt;
  const WallTime first = std::chrono::floor<minutes>(time) + minutes(1);
  for (WallTime begin = std::chrono::floor<minutes>(time); begin < first + horizon;) {
    const auto into_block = begin.time_since_epoch() % block;
    std::tm local = local_time(begin);
    for (WallTime minute = begin; minute < begin + block - into_block; minute += minutes(1), ++local.tm_min) {
      if (minute >= first && timetable.matches(local)) return minute;
    }
    begin += block - into_block;
  }
  return std::nullopt;
}

std::tm local_time(WallTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return local;
}

}  // namespace weir
