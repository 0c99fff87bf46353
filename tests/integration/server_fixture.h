#pragma once

#include <fcntl.h>
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "backend/base/text_form.h"
#include "backend/platform/descriptor.h"
#include "backend/platform/files.h"
#include "tests/support/temporary_directory.h"

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
  long pages = 0;
  std::ifstream(fmt::format("/proc/{}/statm", pid)) >> pages;
  return pages > 0;
}

/// What a shell command prints, both outputs together.
inline std::string run(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen((command + " 2>&1").c_str(), "r"), ::pclose);
  std::string text;
  std::array<char, 1 << 16> chunk;
  while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), pipe.get()))
    text.append(chunk.data(), size);
  return text;
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
    std::smatch match;
    return std::regex_search(text, match, std::regex("Listening on https?://127.0.0.1:(\\d+)\n")) ? std::stoi(match[1])
                                                                                                  : 0;
  }
  std::string log() const { return read_file(log_, 1 << 20); }

  /// Its children, the oldest first.
  std::vector<pid_t> transcoders() const {
    std::ifstream list(fmt::format("/proc/{0}/task/{0}/children", pid_));
    return {std::istream_iterator<pid_t>(list), {}};
  }

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
    std::string command = fmt::format("curl -s -i -m 10 -X {} 'http://127.0.0.1:{}{}'", method, port(), target);
    if (!body.empty()) command += fmt::format(" --data-binary '{}'", body);
    return run(command);
  }

 private:
  std::string log_;
  pid_t pid_ = 0;
  bool reaped_ = false;
};

/// The real server on the real clock; each stream's input names the program that stands in for its transcoder. Stream 0
/// is on the air, and is so with `first_pid` at the end.
class ServerFixture : public testing::Test {
 protected:
  void SetUp() override {
    serve();
    add("goes_on");
    server->request("POST", "/api/streams/0/start");
    expect_stream_0_on_air();
  }
  void TearDown() override {
    EXPECT_EQ(transcoder_of_stream_0(), first_pid) << server->log();
    server = nullptr;
  }

  void serve() {
    server = std::make_unique<ServerProcess>(
        std::vector<std::string>{"--data", data, "--port", "0", "--ffmpeg", WEIR_TEST_PROGRAMS "/runs_its_input",
                                 "--file-root", WEIR_TEST_PROGRAMS},
        at("log"));
    ASSERT_TRUE(server->is_ready()) << server->log();
  }
  void expect_stream_0_on_air() {
    ASSERT_TRUE(eventually_has(0, R"("status":"running")")) << server->log();
    first_pid = transcoder_of_stream_0();
    ASSERT_GT(first_pid, 0);
  }
  std::string add(const std::string& name) const {
    Value form = Value::parse(R"({"output":{"0":{"protocol":"udp","hostname":"127.0.0.1","port":9}}})");
    form["label"] = name;
    form["input"]["0"]["url"] = WEIR_TEST_PROGRAMS "/" + name;
    return server->request("POST", "/api/streams", to_json(form));
  }
  std::string get(int id, const std::string& what = "") const {
    return server->request("GET", "/api/streams/" + std::to_string(id) + what);
  }
  bool eventually_has(int id, const std::string& text) const {
    return eventually([&] { return get(id).find(text) != std::string::npos; }, std::chrono::seconds(10));
  }
  std::string at(const std::string& name) const { return (directory.path() / name).string(); }
  std::string file(int id) const { return data + "/streams/" + std::to_string(id) + ".conf"; }
  std::string saved_status(int id) const { return to_text(Value::parse(read_file(file(id), 1 << 20)).at("status")); }

  /// Stream 0 was started first.
  pid_t transcoder_of_stream_0() const {
    const auto transcoders = server->transcoders();
    return transcoders.empty() ? 0 : transcoders.front();
  }

  TemporaryDirectory directory;
  const std::string data = at("data");
  std::unique_ptr<ServerProcess> server;
  pid_t first_pid = 0;
};

}  // namespace weir::test
