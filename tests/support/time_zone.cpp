#include "tests/support/time_zone.h"

#include <cstdlib>
#include <ctime>

namespace weir::test {

TimeZone::TimeZone(const std::string& name) {
  if (const char* earlier = std::getenv("TZ")) earlier_ = earlier;
  ::setenv("TZ", name.c_str(), 1);
  ::tzset();
}

TimeZone::~TimeZone() {
  earlier_ ? ::setenv("TZ", earlier_->c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
}

}  // namespace weir::test
