#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/platform/timeout.h"

namespace weir {

namespace {

/// A file in memory that takes a program's output up to a limit.
class OutputFile {
 public:
  explicit OutputFile(std::size_t limit) : file_(::memfd_create("output", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (!file_) throw_errno("memfd_create");
    if (::ftruncate(file_.get(), static_cast<off_t>(limit)) != 0) throw_errno("ftruncate");
    if (::fcntl(file_.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) != 0) throw_errno("fcntl");
  }

  int fd() const noexcept { return file_.get(); }

  std::string content() const {
    // The child shares the offset: it is the number of bytes written.
    std::string text(static_cast<std::size_t>(::lseek(file_.get(), 0, SEEK_CUR)), '\0');
    const ssize_t size = ::pread(file_.get(), text.data(), text.size(), 0);
    if (size < 0) throw_errno("pread");
    text.resize(static_cast<std::size_t>(size));
    return text;
  }

 private:
  Descriptor file_;
};

Async<> wait_for_end(std::shared_ptr<ChildProcess> child) { co_await child->wait(); }

}  // namespace

Async<CommandResult> run_command(std::vector<std::string> command, double timeout_seconds, std::size_t output_limit) {
  const OutputFile output(output_limit);
  const OutputFile error(output_limit);
  SpawnOptions options{.command = std::move(command), .environment = std::nullopt};
  options.before_exec = lead_group_and_die_with_parent;
  options.standard_output = output.fd();
  options.standard_error = error.fd();
  const std::shared_ptr<ChildProcess> child = spawn_child(options);

  const bool ended = co_await run_at_most("command", wait_for_end(child), to_duration(timeout_seconds));
  CommandResult result;
  result.timed_out = !ended;
  if (ended) result.exit_status = *child->poll();
  child->signal_group(SIGKILL);
  if (ended) child->reap();
  result.standard_output = output.content();
  result.standard_error = error.content();
  co_return result;
}

}  // namespace weir
