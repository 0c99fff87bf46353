#include "tests/support/scripted_child.h"

#include <fcntl.h>
#include <signal.h>

#include <array>

#include "backend/platform/failure.h"

namespace weir::test {

namespace {

Descriptor open_pipe(Descriptor& write_end) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw_errno("pipe2");
  write_end = Descriptor(ends[1]);
  return Descriptor(ends[0]);
}

}  // namespace

void ChildScript::print(std::string_view text) const {
  if (::write(stderr_write.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) throw_errno("write");
}

void ChildScript::exit(int exit_status) {
  status = exit_status;
  stderr_write.reset();
  life.reset();
}

ScriptedChild::ScriptedChild(std::shared_ptr<ChildScript> script)
    : script_(std::move(script)),
      stderr_read_(open_pipe(script_->stderr_write)),
      life_read_(open_pipe(script_->life)),
      ended_(life_read_.get()) {}

Async<int> ScriptedChild::wait() {
  while (!script_->status) co_await ended_.readable();
  co_return *script_->status;
}

void ScriptedChild::signal_group(int signal) {
  script_->signals.push_back(signal);
  if (!script_->status && script_->dies_of_signals) script_->exit(-signal);
}

double ScriptedProcessInfo::cpu_percent() {
  if (script_->status) throw NoSuchProcess("gone");
  return script_->cpu_percent;
}

MemoryInfo ScriptedProcessInfo::memory_info() {
  if (script_->status) throw NoSuchProcess("gone");
  return {script_->rss};
}

}  // namespace weir::test
