// A server under test on 127.0.0.1, and how long its answers take.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace weir::bench {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int port = 18474;

inline int connect_to_server() {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return connection;
  close(connection);
  return -1;
}

inline std::string request(const std::string& method, const std::string& target, const std::string& body = "") {
  const int connection = connect_to_server();
  std::string answer;
  const std::string text =
      fmt::format("{} {} HTTP/1.1\r\nHost: localhost\r\nContent-Length: {}\r\nConnection: close\r\n\r\n{}", method,
                  target, body.size(), body);
  if (connection >= 0 && send(connection, text.data(), text.size(), MSG_NOSIGNAL) > 0) {
    std::array<char, 4096> buffer;
    for (ssize_t size = 0; (size = read(connection, buffer.data(), buffer.size())) > 0;)
      answer.append(buffer.data(), static_cast<std::size_t>(size));
  }
  if (connection >= 0) close(connection);
  return answer;
}

inline double cpu_seconds(pid_t pid) {
  double nanoseconds = 0;
  std::ifstream(fmt::format("/proc/{}/schedstat", pid)) >> nanoseconds;
  return nanoseconds / 1e9;
}

using WallClock = std::chrono::system_clock;

/// Reads an answer. Gives when it arrived, by the system's stamp: the reader may have waited for a processor since.
inline std::optional<WallClock::time_point> read_answer(int connection) {
  std::array<char, 4096> buffer;
  std::array<char, 256> control;
  iovec part{buffer.data(), buffer.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  if (recvmsg(connection, &message, 0) <= 0) return std::nullopt;
  timespec arrival{};
  const cmsghdr* stamp = CMSG_FIRSTHDR(&message);
  if (!stamp || stamp->cmsg_type != SCM_TIMESTAMPNS) return WallClock::now();
  std::memcpy(&arrival, CMSG_DATA(stamp), sizeof arrival);
  return WallClock::time_point(std::chrono::seconds(arrival.tv_sec) + std::chrono::nanoseconds(arrival.tv_nsec));
}

/// Asks again and again, each 2 ms, over one connection, and keeps how long each answer took.
class Prober {
 public:
  /// Milliseconds of each round, shortest first: until the answer came, and of the server's CPU until then.
  struct Rounds {
    std::vector<double> times;
    std::vector<double> cpu;  ///< of a busy machine it tells more than the time
  };

  explicit Prober(pid_t server) : server_(server), connection_(connect_to_server()), thread_([this] { run(); }) {}

  Rounds finish() {
    finished_ = true;
    thread_.join();
    close(connection_);
    std::ranges::sort(rounds_.times);
    std::ranges::sort(rounds_.cpu);
    return rounds_;
  }

 private:
  void run() {
    const std::string text = "GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n";
    const int yes = 1;
    setsockopt(connection_, SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes);
    for (auto next = Clock::now(); !finished_; std::this_thread::sleep_until(next += 2ms)) {
      const double cpu = cpu_seconds(server_);
      next = std::max(next, Clock::now());
      const auto begin = WallClock::now();
      const bool asked = write(connection_, text.data(), text.size()) > 0;
      const auto arrival = asked ? read_answer(connection_) : std::nullopt;
      if (!arrival) {
        fmt::print(stderr, "the server closed the connection\n");
        std::exit(1);
      }
      rounds_.times.push_back(std::chrono::duration<double, std::milli>(*arrival - begin).count());
      rounds_.cpu.push_back(1000 * (cpu_seconds(server_) - cpu));
    }
  }

  pid_t server_;
  int connection_;
  std::atomic<bool> finished_ = false;
  Rounds rounds_;
  std::thread thread_;
};

/// Starts the server and waits until it answers.
inline pid_t spawn_server(const std::string& program, const std::string& data,
                          const std::vector<std::string>& settings) {
  std::vector<std::string> command{program,       "serve", "--data", data, "--port", std::to_string(port),
                                   "--log-level", "error"};
  command.insert(command.end(), settings.begin(), settings.end());
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) std::exit(1);
  posix_spawn_file_actions_destroy(&actions);
  for (int i = 0; i < 500; ++i) {
    std::this_thread::sleep_for(20ms);
    if (waitpid(pid, nullptr, WNOHANG) == pid) {
      fmt::print(stderr, "the server ended; is port {} in use?\n", port);
      std::exit(1);
    }
    if (request("GET", "/readyz").starts_with("HTTP/1.1 200")) break;
  }
  return pid;
}

}  // namespace weir::bench
