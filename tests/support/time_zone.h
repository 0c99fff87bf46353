#pragma once

#include <optional>
#include <string>

namespace weir::test {

/// The process's time zone while it lives, in the form of POSIX's TZ; then it is what it was.
class TimeZone {
 public:
  explicit TimeZone(const std::string& name);
  ~TimeZone();
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> earlier_;
};

}  // namespace weir::test
