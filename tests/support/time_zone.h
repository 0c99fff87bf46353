#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace weir::test {

/// The process's time zone while it lives, in the form of POSIX's TZ; then it is what it was.
class TimeZone {
 public:
  explicit TimeZone(const std::string& name) {
    if (const char* earlier = std::getenv("TZ")) earlier_ = earlier;
    ::setenv("TZ", name.c_str(), 1);
    ::tzset();
  }
  ~TimeZone() {
    earlier_ ? ::setenv("TZ", earlier_->c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> earlier_;
};

}  // namespace weir::test
