#pragma once

#include <fcntl.h>

#include <array>
#include <memory>

#include "backend/platform/child_process.h"
#include "backend/platform/failure.h"
#include "backend/platform/poller.h"
#include "backend/platform/process_info.h"

namespace weir::test {

/// What a test and the stream under test share of a scripted child.
struct ChildScript {
  std::vector<std::string> command;
  pid_t pid = 0;
  std::optional<int> status;  ///< how it ended; it runs while absent
  std::vector<int> signals;   ///< what its group was sent
  bool reaped = false;
  bool dies_of_signals = true;   ///< a SIGKILL ends it
  std::uint64_t rss = 50 << 20;  ///< bytes
  double cpu_percent = 0;
  std::chrono::nanoseconds cpu_time{0};

  /// Prints to standard error.
  void print(std::string_view text) const {
    if (::write(stderr_write.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      throw_errno("write");
  }
  /// Ends by itself: its pipes close.
  void exit(int exit_status) {
    status = exit_status;
    stderr_write.reset();
    life.reset();
  }

  Descriptor stderr_write;
  Descriptor life;  ///< its other end is readable once the child has ended
};

/// A child that does what the test scripts; its standard error is a real pipe.
class ScriptedChild : public ChildProcess {
 public:
  explicit ScriptedChild(std::shared_ptr<ChildScript> script)
      : script_(std::move(script)),
        stderr_read_(open_pipe(script_->stderr_write)),
        life_read_(open_pipe(script_->life)),
        ended_(life_read_.get()) {}

  pid_t pid() const noexcept override { return script_->pid; }
  std::optional<int> poll() override { return script_->status; }
  Async<int> wait() override {
    while (!script_->status) co_await ended_.readable();
    co_return *script_->status;
  }
  void signal_group(int signal) override {
    script_->signals.push_back(signal);
    if (!script_->status && script_->dies_of_signals) script_->exit(-signal);
  }
  void reap() override { script_->reaped = true; }
  int stderr_fd() const noexcept override { return stderr_read_.get(); }

 private:
  static Descriptor open_pipe(Descriptor& write_end) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw_errno("pipe2");
    write_end = Descriptor(ends[1]);
    return Descriptor(ends[0]);
  }

  std::shared_ptr<ChildScript> script_;
  Descriptor stderr_read_;
  Descriptor life_read_;
  ReadWatch ended_;
};

/// The process information of a scripted child.
class ScriptedProcessInfo : public ProcessInfo {
 public:
  explicit ScriptedProcessInfo(std::shared_ptr<ChildScript> script) : script_(std::move(script)) {}
  double cpu_percent() override { return running().cpu_percent; }
  std::chrono::nanoseconds cpu_time() override { return running().cpu_time; }
  MemoryInfo memory_info() override { return {running().rss}; }

 private:
  const ChildScript& running() const {
    if (script_->status) throw NoSuchProcess("gone");
    return *script_;
  }

  std::shared_ptr<ChildScript> script_;
};

}  // namespace weir::test
