#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/platform/async.h"
#include "backend/platform/descriptor.h"
#include "backend/platform/output_file.h"

namespace weir {

/// What the kernel takes as one argument of a program: MAX_ARG_STRLEN without the NUL at its end.
inline constexpr std::size_t max_argument_bytes = 32 * 4096 - 1;

/// A child process and our ends of its three pipes. Tests put scripted children in the place of real ones.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;

  virtual pid_t pid() const noexcept = 0;
  /// How the child has ended: its exit status, or minus the number of the signal that ended it; nothing while it runs.
  /// While a task is in `wait` the loop's last look counts, at most `Poller::hold` ago. Does not reap: the process id
  /// stays the child's until `reap`.
  virtual std::optional<int> poll() = 0;
  /// Waits until the child has ended.
  virtual Async<int> wait() = 0;
  /// Sends the signal to the child's whole process group, whose id is the child's process id. Throws
  /// `std::system_error`; to be called before `reap` only.
  virtual void signal_group(int signal) = 0;
  /// Reaps the ended child; its process id may be reused afterwards.
  virtual void reap() = 0;
  /// The reading end of the child's standard error, non-blocking.
  virtual int stderr_fd() const noexcept = 0;
};

/// How a child is started.
struct SpawnOptions {
  /// Program and arguments. The program is looked up in PATH when it holds no slash.
  std::vector<std::string> command;
  /// The whole environment as NAME=value texts; that of this process when absent.
  std::optional<std::vector<std::string>> environment;
  /// Runs in the child before the program starts. It shares the parent's memory and must neither allocate nor throw.
  void (*before_exec)() = nullptr;
  /// Where the child's outputs go in place of a pipe to us; not owned.
  int standard_output = -1;
  int standard_error = -1;
};

/// Starts a real child as vfork does, so that the cost does not grow with this process's memory. The child holds no
/// descriptor of ours but its three pipes. Throws `std::system_error` with the error of the failed exec. On its
/// destruction a child that was not reaped is killed with its group, and reaped by a task of its own. Only the loop's
/// thread starts children: they die with the thread that started them.
std::unique_ptr<ChildProcess> spawn_child(const SpawnOptions& options);

/// The path of an executable program, looked up in PATH when the name holds no slash; nothing when there is none.
std::optional<std::string> find_program(const std::string& name);

/// The hook of supervised children: the child leads its own process group, dies with this process, and has the
/// descriptor limit that this process was started with.
void lead_group_and_die_with_parent();

/// Raises the soft descriptor limit to the hard one for this process, and keeps the original for the children.
void raise_descriptor_limit();

/// How a program that was run to its end went.
struct CommandResult {
  int exit_status = 0;  ///< as `ChildProcess::poll`
  bool timed_out = false;
  std::string standard_output;
  std::string standard_error;
};

/// Runs a short-lived program, bounded in time and in output: its writes beyond `output_limit` bytes fail. It leads its
/// own group, which is killed at its end, at the timeout (its end is not waited for then), or when the waiting task is
/// killed. Throws `std::system_error` when it cannot be started. Whoever wants to see its errors while it runs gives a
/// file for them.
Async<CommandResult> run_command(std::vector<std::string> command, double timeout_seconds,
                                 std::size_t output_limit = 1 << 20,
                                 std::shared_ptr<const OutputFile> standard_error = nullptr);

}  // namespace weir
