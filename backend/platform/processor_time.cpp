#include "backend/platform/processor_time.h"

#include <unistd.h>

#include <array>
#include <fstream>
#include <numeric>
#include <string>

namespace weir {

double IdleProcessors::look() {
  std::ifstream file("/proc/stat");
  std::string name;
  // user, nice, system, idle, iowait, irq, softirq, steal
  std::array<double, 8> times{};
  file >> name;
  for (double& time : times) file >> time;
  if (!file) return 0;
  const double idle = times[1] + times[3] + times[4];
  const double total = std::accumulate(times.begin(), times.end(), 0.0);
  const double passed = total - total_;
  const double share = total_ > 0 && passed > 0 ? (idle - idle_) / passed : 0;
  idle_ = idle;
  total_ = total;
  return share * static_cast<double>(::sysconf(_SC_NPROCESSORS_ONLN));
}

}  // namespace weir
