// What supervision costs: the server with 10, 100, 500 and 1000 streams of a transcoder that prints two progress lines
// a second, beside a bare loop that starts the same children and only reads their pipes.
//
//     bench_supervise [--watched] SERVER TRANSCODER [SECONDS [STREAMS …]]
//
// With --watched each stream also completes an HLS segment every four seconds and has a viewer, and the time that the
// list of all streams takes over HTTP is shown.

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "bench/process_usage.h"
#include "bench/stream_files.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int port = 18473;

using weir::bench::resident_mebibytes;
using weir::bench::Usage;
using weir::bench::usage_of;

// The children of a process that run the transcoder already.
std::size_t transcoders_of(pid_t pid, const std::string& name) {
  std::ifstream children(fmt::format("/proc/{0}/task/{0}/children", pid));
  std::size_t count = 0;
  for (pid_t child = 0; children >> child;) {
    std::string command;
    std::getline(std::ifstream(fmt::format("/proc/{}/comm", child)) >> std::ws, command);
    count += name.starts_with(command) ? 1 : 0;
  }
  return count;
}

std::size_t children_of(pid_t pid) {
  std::ifstream children(fmt::format("/proc/{0}/task/{0}/children", pid));
  return static_cast<std::size_t>(std::distance(std::istream_iterator<pid_t>(children), {}));
}

pid_t start(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) std::exit(1);
  return pid;
}

// --- the bare loop ---

int start_child_with_pipe(const std::string& transcoder) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::exit(1);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  std::array<char*, 2> arguments{const_cast<char*>(transcoder.c_str()), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, transcoder.c_str(), &actions, nullptr, arguments.data(), environ) != 0) std::exit(1);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  return ends[0];
}

[[noreturn]] void run_bare_loop(const std::string& transcoder, int streams) {
  const int epoll = epoll_create1(0);
  for (int i = 0; i < streams; ++i) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = start_child_with_pipe(transcoder);
    epoll_ctl(epoll, EPOLL_CTL_ADD, event.data.fd, &event);
  }
  std::array<char, 65536> buffer;
  std::array<epoll_event, 64> events;
  for (;;) {
    const int count = epoll_wait(epoll, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < count; ++i) {
      if (read(events[static_cast<std::size_t>(i)].data.fd, buffer.data(), buffer.size()) <= 0) std::exit(0);
    }
  }
}

// --- the server ---

std::string request(const std::string& method, const std::string& target, const std::string& body) {
  const int connection = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    const std::string text = fmt::format(
        "{} {} HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\nContent-Length: {}\r\nConnection: "
        "close\r\n\r\n{}",
        method, target, body.size(), body);
    if (write(connection, text.data(), text.size()) > 0) {
      static std::array<char, 1 << 18> buffer;
      for (ssize_t size = 0; (size = read(connection, buffer.data(), buffer.size())) > 0;) {
        answer.append(buffer.data(), static_cast<std::size_t>(size));
      }
    }
  }
  close(connection);
  return answer;
}

std::string batch_of(int streams) {
  std::string ids;
  for (int i = 0; i < streams; ++i) ids += fmt::format("{}{}", i ? "," : "", i);
  return fmt::format(R"({{"ids":[{}],"interval":0}})", ids);
}

// --- measuring ---

double seconds_since(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

double wait_for_children(pid_t pid, const std::string& transcoder, int streams, Clock::time_point begin) {
  const std::string name = std::filesystem::path(transcoder).filename().string();
  while (seconds_since(begin) < 60 && children_of(pid) < static_cast<std::size_t>(streams)) {
    std::this_thread::sleep_for(2ms);
  }
  const double spawned = seconds_since(begin);
  std::this_thread::sleep_for(100ms);  // the last one is about to be the transcoder
  if (transcoders_of(pid, name) < static_cast<std::size_t>(streams)) {
    fmt::print(stderr, "only {} of {} children were started\n", transcoders_of(pid, name), streams);
    kill(pid, SIGKILL);
    std::exit(1);
  }
  return spawned;
}

void measure(const char* name, pid_t pid, int streams, double spawned, int seconds) {
  std::this_thread::sleep_for(5s);  // the start is over
  const Usage before = usage_of(pid);
  const auto begin = Clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const Usage after = usage_of(pid);
  const double passed = seconds_since(begin);
  fmt::print("{:<8} {:>5} streams  {:6.2f} % of a core  {:6.1f} MB  {:7.0f} wake-ups/s  spawned in {:.2f} s\n", name,
             streams, 100 * (after.cpu_seconds - before.cpu_seconds) / passed, resident_mebibytes(pid),
             static_cast<double>(after.switches - before.switches) / passed, spawned);
}

void register_viewers(int streams) {
  for (int i = 0; i < streams; ++i) {
    request("POST", fmt::format("/api/streams/{}/clients", i),
            R"({"filename":"index.m3u8","addr":"192.0.2.7","timeout":3600})");
  }
}

void measure_list() {
  std::vector<double> times;
  std::size_t size = 0;
  for (int i = 0; i < 50; ++i) {
    const auto begin = Clock::now();
    size = request("GET", "/api/streams", "").size();
    times.push_back(1000 * seconds_since(begin));
    std::this_thread::sleep_for(20ms);
  }
  std::ranges::sort(times);
  fmt::print("{:<8} list over HTTP: {:.1f} ms median, {:.1f} ms best, {} KB\n", "", times[times.size() / 2],
             times.front(), size / 1000);
}

void end(pid_t pid, int signal) {
  kill(pid, signal);
  waitpid(pid, nullptr, 0);
}

void measure_bare_loop(const std::string& self, const std::string& transcoder, int streams, int seconds) {
  const auto begin = Clock::now();
  const pid_t pid = start({self, "--bare", transcoder, std::to_string(streams)});
  const double spawned = wait_for_children(pid, transcoder, streams, begin);
  measure("bare", pid, streams, spawned, seconds);
  end(pid, SIGKILL);
}

void measure_server(const std::string& server, const std::string& transcoder, int streams, int seconds, bool watched) {
  std::string data = (std::filesystem::temp_directory_path() / "weir-bench-XXXXXX").string();
  if (!mkdtemp(data.data())) std::exit(1);
  std::filesystem::create_directories(data + "/streams");
  write_stream_files(data + "/streams", streams);
  const pid_t pid = start({server, "serve", "--data", data, "--port", std::to_string(port), "--ffmpeg", transcoder,
                           "--log-level", "error"});
  while (request("GET", "/readyz", "").find("200 OK") == std::string::npos) std::this_thread::sleep_for(20ms);
  const double idle = resident_mebibytes(pid);
  const auto begin = Clock::now();
  request("POST", "/api/batch/start", batch_of(streams));
  const double spawned = wait_for_children(pid, transcoder, streams, begin);
  if (watched) register_viewers(streams);
  measure("server", pid, streams, spawned, seconds);
  if (watched) measure_list();
  fmt::print("{:<8} {:>5} streams  {:.1f} MB with all of them stopped\n", "", streams, idle);
  end(pid, SIGTERM);
  std::filesystem::remove_all(data);
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  if (argc == 4 && std::string(argv[1]) == "--bare") run_bare_loop(argv[2], std::atoi(argv[3]));
  const std::string self = std::filesystem::absolute(argv[0]).string();
  const bool watched = argc > 1 && std::string(argv[1]) == "--watched";
  if (watched) {
    setenv("FAKE_SEGMENTS", "1", 1);
    --argc;
    ++argv;
  }
  if (argc < 3) {
    fmt::print(stderr, "usage: {} [--watched] SERVER TRANSCODER [SECONDS [STREAMS ...]]\n", self);
    return 2;
  }
  const int seconds = argc > 3 ? std::atoi(argv[3]) : 20;
  std::vector<int> sizes;
  for (int i = 4; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  if (sizes.empty()) sizes = {10, 100, 500, 1000};
  for (const int streams : sizes) {
    measure_bare_loop(self, argv[2], streams, seconds);
    std::this_thread::sleep_for(1s);
    measure_server(argv[1], argv[2], streams, seconds, watched);
    std::this_thread::sleep_for(1s);
  }
}
