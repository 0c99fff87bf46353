#pragma once

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backend/platform/descriptor.h"
#include "backend/platform/files.h"

namespace weir::test {

/// Looks again and again, in real time, until the condition holds. False when it does not within `timeout`.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::seconds timeout = std::chrono::seconds(30)) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

/// Whether the process runs; one that only waits to be reaped does not.
inline bool runs(pid_t pid) {
  long memory = 0;
  std::ifstream(fmt::format("/proc/{}/statm", pid)) >> memory;
  return memory > 0;
}

/// The real program. What it prints goes to a file; it is killed at the end if it still runs.
class ServerProcess {
 public:
  ServerProcess(std::vector<std::string> arguments, std::string log) : log_(std::move(log)) {
    arguments.insert(arguments.begin(), {WEIR_PROGRAM, "serve"});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const Descriptor output(::open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::dup2(output.get(), STDOUT_FILENO);
    ::dup2(output.get(), STDERR_FILENO);
    ::signal(SIGCHLD, SIG_IGN);  // as some launchers do
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ~ServerProcess() {
    if (!reaped_) end(SIGKILL);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  pid_t pid() const { return pid_; }
  /// The port that the system chose stands in the log; 0 until then.
  int port() const {
    const std::string text = log();
    const std::string before = "Listening on http://127.0.0.1:";
    const std::size_t at = text.find(before);
    return at == std::string::npos || text.find('\n', at) == std::string::npos
               ? 0
               : std::stoi(text.substr(at + before.size()));
  }
  std::string log() const { return read_file(log_, 1 << 20); }

  /// Sends the signal and waits for the end.
  int end(int signal) {
    ::kill(pid_, signal);
    return wait();
  }
  /// The exit status, or minus the number of the signal that ended it.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  /// Waits until it is ready. False when it ends instead.
  bool is_ready() {
    return eventually([this] { return port() != 0 && request("GET", "/readyz").starts_with("HTTP/1.1 200"); });
  }

  /// The whole answer as curl shows it; empty when there was none.
  std::string request(const std::string& method, const std::string& target, const std::string& body = {}) const {
    std::string command = fmt::format("curl -sS -i -m 10 -X {} 'http://127.0.0.1:{}{}'", method, port(), target);
    if (!body.empty()) command += fmt::format(" --data-binary '{}'", body);
    const std::unique_ptr<FILE, int (*)(FILE*)> answer(::popen(command.c_str(), "r"), ::pclose);
    std::string text;
    std::array<char, 1 << 16> chunk;
    while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), answer.get()))
      text.append(chunk.data(), size);
    return text;
  }

 private:
  std::string log_;
  pid_t pid_ = 0;
  bool reaped_ = false;
};

}  // namespace weir::test
