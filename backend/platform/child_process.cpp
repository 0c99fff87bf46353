#include "backend/platform/child_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "backend/platform/failure.h"
#include "backend/platform/poller.h"
#include "backend/platform/task.h"

extern char** environ;

namespace weir {

namespace {

rlimit original_descriptor_limit{0, 0};
pid_t parent_of_children = 0;

/// Everything that the child needs, made ready by the parent: between clone and exec nothing may allocate.
struct Launch {
  const char* program;
  char* const* arguments;
  char* const* environment;
  void (*before_exec)();
  const class HandOver* hand_over;
  sigset_t signal_mask;
  int error = 0;
};

struct Pipe {
  Descriptor read;
  Descriptor write;
};

// Above the three standard descriptors, so that the child can put it in the place of any of them.
Descriptor above_standard(int fd) {
  if (fd > STDERR_FILENO) return Descriptor(fd);
  const Descriptor low(fd);
  Descriptor high(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!high) throw_errno("fcntl");
  return high;
}

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw_errno("pipe2");
  Descriptor write = above_standard(ends[1]);
  return {above_standard(ends[0]), std::move(write)};
}

void set_non_blocking(const Descriptor& descriptor) {
  if (::fcntl(descriptor.get(), F_SETFL, O_NONBLOCK) != 0) throw_errno("fcntl");
}

// Resets what this program handles or ignores: a handler in the child must not run on the parent's memory.
void reset_signals(const sigset_t& mask) {
  struct sigaction action{};
  action.sa_handler = SIG_DFL;
  for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGPIPE, SIGCHLD}) ::sigaction(signal, &action, nullptr);
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
}

/// The low descriptors through which the ends of the pipes reach a child. The child shares this process's table, which
/// may be thousands long, until it takes a copy of the low part only: copying and closing all of it would cost more
/// than everything else of a start.
class HandOver {
 public:
  HandOver() : null_(open_null()) {
    for (Descriptor& slot : slots_) slot = open_null();
  }

  void put(const std::array<int, 3>& standard) const {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      if (::dup3(standard[i], slots_[i].get(), O_CLOEXEC) < 0) throw_errno("dup3");
    }
  }

  /// Leaves nothing of the pipes behind in this process, however the start goes.
  struct Clearing {
    const HandOver& hand_over;
    ~Clearing() {
      for (const Descriptor& slot : hand_over.slots_) ::dup3(hand_over.null_.get(), slot.get(), O_CLOEXEC);
    }
  };

  // In the child: false with errno when its standard descriptors cannot be set.
  bool take() const noexcept {
    const int last = std::max({slots_[0].get(), slots_[1].get(), slots_[2].get()});
    if (::close_range(static_cast<unsigned>(last) + 1, ~0U, CLOSE_RANGE_UNSHARE) != 0) return false;
    for (int target = 0; target < 3; ++target) {
      if (::dup2(slots_[static_cast<std::size_t>(target)].get(), target) < 0) return false;
    }
    return ::close_range(STDERR_FILENO + 1, ~0U, 0) == 0;
  }

 private:
  static Descriptor open_null() {
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null < 0) throw_errno("/dev/null");
    return above_standard(null);
  }

  Descriptor null_;  ///< kept, as there may be no descriptor left when the slots have to be cleared
  std::array<Descriptor, 3> slots_;
};

int run_child(void* argument) {
  Launch& launch = *static_cast<Launch*>(argument);
  if (launch.hand_over->take()) {
    if (launch.before_exec) launch.before_exec();
    reset_signals(launch.signal_mask);
    ::execve(launch.program, launch.arguments, launch.environment);
  }
  launch.error = errno;
  ::_exit(127);
}

bool is_executable(const std::string& path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// A path is not checked: the failed exec reports what is wrong with it.
std::string program_path(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const auto found = find_program(name);
  if (!found) throw_errno(ENOENT, name);
  return *found;
}

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

int decode(const siginfo_t& info) { return info.si_code == CLD_EXITED ? info.si_status : -info.si_status; }

// The parent is suspended until the child has left its memory, as after vfork, but the child has a stack of its own.
pid_t clone_child(Launch& launch, int& pidfd) {
  alignas(16) static std::array<char, 64 * 1024> stack;
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, &launch.signal_mask);
  constexpr int flags = CLONE_VM | CLONE_VFORK | CLONE_FILES | CLONE_PIDFD | SIGCHLD;
  const pid_t pid = ::clone(run_child, stack.data() + stack.size(), flags, &launch, &pidfd);
  const int error = errno;
  ::sigprocmask(SIG_SETMASK, &launch.signal_mask, nullptr);
  if (pid < 0) throw_errno(error, "clone");
  return pid;
}

// A killed process can stay in an uninterruptible disk wait: only this task waits for it.
Async<> reap_later(Descriptor pidfd) {
  ReadWatch ended(pidfd.get());
  co_await ended.readable();
  ::waitid(P_PIDFD, static_cast<id_t>(pidfd.get()), nullptr, WEXITED | WNOHANG);
}

class RealChild : public ChildProcess {
 public:
  RealChild(pid_t pid, Descriptor pidfd, std::array<Descriptor, 3> pipes)
      : pid_(pid), pidfd_(std::move(pidfd)), pipes_(std::move(pipes)), ended_(pidfd_.get()) {}

  ~RealChild() override {
    if (reaped_) return;
    ::killpg(pid_, SIGKILL);
    ::kill(pid_, SIGKILL);
    spawn("reaper", reap_later(std::move(pidfd_)));
  }

  pid_t pid() const noexcept override { return pid_; }
  int stderr_fd() const noexcept override { return pipes_[2].get(); }

  std::optional<int> poll() override {
    // The list of all streams asks this of each; the loop knows without a system call.
    if (status_ || ended_.awaited()) return status_;
    siginfo_t info{};
    const auto id = static_cast<id_t>(pidfd_.get());
    if (::waitid(P_PIDFD, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0) throw_errno("waitid");
    if (info.si_pid != 0) status_ = decode(info);
    return status_;
  }

  Async<int> wait() override {
    while (!poll()) co_await ended_.readable();
    co_return *status_;
  }

  void signal_group(int signal) override {
    if (::killpg(pid_, signal) != 0) throw_errno("killpg");
  }

  void reap() override {
    siginfo_t info{};
    if (::waitid(P_PIDFD, static_cast<id_t>(pidfd_.get()), &info, WEXITED | WNOHANG) != 0) throw_errno("waitid");
    reaped_ = info.si_pid != 0;
  }

 private:
  pid_t pid_;
  Descriptor pidfd_;
  std::array<Descriptor, 3> pipes_;
  ReadWatch ended_;
  std::optional<int> status_;
  bool reaped_ = false;
};

}  // namespace

std::unique_ptr<ChildProcess> spawn_child(const SpawnOptions& options) {
  if (options.command.empty()) throw ValueError("no program to start");
  const std::string program = program_path(options.command.front());
  const std::vector<char*> arguments = pointers(options.command);
  const std::vector<char*> environment = options.environment ? pointers(*options.environment) : std::vector<char*>();
  Pipe input = make_pipe();
  Pipe output = make_pipe();
  Pipe error = make_pipe();
  set_non_blocking(error.read);

  Launch launch{};
  launch.program = program.c_str();
  launch.arguments = arguments.data();
  launch.environment = options.environment ? environment.data() : environ;
  launch.before_exec = options.before_exec;
  static const HandOver hand_over;
  const HandOver::Clearing clearing{hand_over};
  hand_over.put({input.read.get(), options.standard_output < 0 ? output.write.get() : options.standard_output,
                 options.standard_error < 0 ? error.write.get() : options.standard_error});
  launch.hand_over = &hand_over;
  parent_of_children = ::getpid();
  int pidfd = -1;
  const pid_t pid = clone_child(launch, pidfd);
  Descriptor owned_pidfd(pidfd);
  if (launch.error != 0) {
    ::waitid(P_PIDFD, static_cast<id_t>(pidfd), nullptr, WEXITED);
    throw_errno(launch.error, program);
  }
  return std::make_unique<RealChild>(pid, std::move(owned_pidfd),
                                     std::array{std::move(input.write), std::move(output.read), std::move(error.read)});
}

std::optional<std::string> find_program(const std::string& name) {
  if (name.find('/') != std::string::npos) return is_executable(name) ? std::optional(name) : std::nullopt;
  const char* path = std::getenv("PATH");
  std::istringstream directories(path ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string directory; std::getline(directories, directory, ':');) {
    const std::string candidate = (directory.empty() ? "." : directory) + "/" + name;
    if (is_executable(candidate)) return candidate;
  }
  return std::nullopt;
}

void lead_group_and_die_with_parent() {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have died before the line above.
  if (::getppid() != parent_of_children) ::_exit(127);
  if (original_descriptor_limit.rlim_max != 0) ::setrlimit(RLIMIT_NOFILE, &original_descriptor_limit);
}

void raise_descriptor_limit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) throw_errno("getrlimit");
  original_descriptor_limit = limit;
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) throw_errno("setrlimit");
}

}  // namespace weir
