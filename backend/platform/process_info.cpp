#include "backend/platform/process_info.h"

#include <fcntl.h>
#include <fmt/core.h>

#include <array>
#include <charconv>
#include <cmath>

#include "backend/platform/failure.h"

namespace weir {

namespace {

struct Pages {
  std::uint64_t virtual_size = 0;
  std::uint64_t resident = 0;
};

[[noreturn]] void throw_gone(pid_t pid) { throw NoSuchProcess(fmt::format("process no longer exists (pid={})", pid)); }

Pages read_pages(const Descriptor& statm, pid_t pid) {
  std::array<char, 128> text{};
  const ssize_t size = ::pread(statm.get(), text.data(), text.size(), 0);
  Pages pages;
  if (size > 0) {
    const auto first = std::from_chars(text.data(), text.data() + size, pages.virtual_size);
    std::from_chars(first.ptr + 1, text.data() + size, pages.resident);
  }
  // A process that has ended has no memory, whether it was reaped or not.
  if (pages.virtual_size == 0) throw_gone(pid);
  return pages;
}

}  // namespace

Process::Process(pid_t pid)
    : pid_(pid), statm_(::open(fmt::format("/proc/{}/statm", pid).c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!statm_ && errno != ENOENT && errno != ESRCH) throw_errno("process information");
  if (!statm_ || ::clock_getcpuclockid(pid, &cpu_clock_) != 0) throw_gone(pid);
}

std::chrono::nanoseconds Process::cpu_time() {
  timespec time{};
  if (::clock_gettime(cpu_clock_, &time) != 0) throw_gone(pid_);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

double Process::cpu_percent() {
  const std::chrono::nanoseconds cpu = cpu_time();
  const TimePoint time = now();
  const auto cpu_used = cpu - std::exchange(last_cpu_, cpu);
  const auto passed = time - std::exchange(last_time_, time);
  if (!std::exchange(measured_, true) || passed.count() <= 0) return 0.0;
  const double percent = 100.0 * static_cast<double>(cpu_used.count()) / static_cast<double>(passed.count());
  return std::round(percent * 10) / 10;
}

MemoryInfo Process::memory_info() {
  const TimePoint time = now();
  if (!memory_ || time - memory_time_ >= std::chrono::seconds(1)) {
    static const auto page_size = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    memory_ = MemoryInfo{read_pages(statm_, pid_).resident * page_size};
    memory_time_ = time;
  }
  return *memory_;
}

}  // namespace weir
