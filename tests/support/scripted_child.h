#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/platform/child_process.h"
#include "backend/platform/descriptor.h"
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

  /// Prints to standard error.
  void print(std::string_view text) const;
  /// Ends by itself: its pipes close.
  void exit(int exit_status);

  Descriptor stderr_write;
  Descriptor life;  ///< its other end is readable once the child has ended
};

/// A child that does what the test scripts; its standard error is a real pipe.
class ScriptedChild : public ChildProcess {
 public:
  explicit ScriptedChild(std::shared_ptr<ChildScript> script);

  pid_t pid() const noexcept override { return script_->pid; }
  std::optional<int> poll() override { return script_->status; }
  Async<int> wait() override;
  void signal_group(int signal) override;
  void reap() override { script_->reaped = true; }
  int stderr_fd() const noexcept override { return stderr_read_.get(); }

 private:
  std::shared_ptr<ChildScript> script_;
  Descriptor stderr_read_;
  Descriptor life_read_;
  ReadWatch ended_;
};

/// The process information of a scripted child.
class ScriptedProcessInfo : public ProcessInfo {
 public:
  explicit ScriptedProcessInfo(std::shared_ptr<ChildScript> script) : script_(std::move(script)) {}
  double cpu_percent() override;
  MemoryInfo memory_info() override;

 private:
  std::shared_ptr<ChildScript> script_;
};

}  // namespace weir::test
