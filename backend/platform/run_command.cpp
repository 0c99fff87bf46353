#include <signal.h>

#include "backend/platform/child_process.h"
#include "backend/platform/sleep.h"
#include "backend/platform/timeout.h"

namespace weir {

namespace {

Async<> wait_for_end(std::shared_ptr<ChildProcess> child) { co_await child->wait(); }

}  // namespace

Async<CommandResult> run_command(std::vector<std::string> command, double timeout_seconds, std::size_t output_limit,
                                 std::shared_ptr<const OutputFile> standard_error) {
  const OutputFile output(output_limit);
  if (!standard_error) standard_error = std::make_shared<const OutputFile>(output_limit);
  SpawnOptions options{.command = std::move(command), .environment = std::nullopt};
  options.before_exec = lead_group_and_die_with_parent;
  options.standard_output = output.fd();
  options.standard_error = standard_error->fd();
  const std::shared_ptr<ChildProcess> child = spawn_child(options);

  const bool ended = co_await run_at_most("command", wait_for_end(child), to_duration(timeout_seconds));
  CommandResult result;
  result.timed_out = !ended;
  if (ended) result.exit_status = *child->poll();
  child->signal_group(SIGKILL);
  if (ended) child->reap();
  result.standard_output = output.content();
  result.standard_error = standard_error->content();
  co_return result;
}

}  // namespace weir
