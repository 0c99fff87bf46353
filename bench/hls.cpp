// What viewers of HLS cost: a copied stream of about 4 Mbit/s to many viewers at once, each of whom asks for the
// playlist and for every new segment. Shows what they received, the server's CPU and memory, and the longest rounds of
// GET /healthz meanwhile: in time, and in CPU that the server used until it answered; and the longest turn of the loop.
//
//     bench_hls SERVER [VIEWERS [SECONDS]]

#include <fmt/core.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <deque>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bench/live_source.h"
#include "bench/loopback_server.h"
#include "bench/process_usage.h"

namespace {

namespace fs = std::filesystem;
using namespace weir::bench;

constexpr auto segment_time = 4s;

/// One viewer: a connection over which it asks for one thing after another.
class Viewer {
 public:
  explicit Viewer(Clock::time_point begin) : socket_(connect_to_server()), due_(begin) {
    if (socket_ < 0) std::exit(1);
  }
  ~Viewer() { close(socket_); }
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  int socket() const { return socket_; }
  std::size_t segments = 0;
  std::size_t bytes = 0;
  std::size_t failures = 0;

  void ask_when_due(Clock::time_point time) {
    if (state_ != State::waiting || time < due_) return;
    due_ = time + segment_time;
    ask("playlist_0.m3u8", State::playlist);
  }

  void receive() {
    if (state_ == State::body) return drop_body();
    std::array<char, 16384> buffer;
    const ssize_t size = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size <= 0) return;
    answer_.append(buffer.data(), static_cast<std::size_t>(size));
    const std::size_t end = answer_.find("\r\n\r\n");
    if (end == std::string::npos) return;
    if (!answer_.starts_with("HTTP/1.1 200")) ++failures;
    const std::size_t length = std::stoul(answer_.substr(answer_.find("Content-Length: ") + 16));
    const std::size_t received = answer_.size() - end - 4;
    if (state_ == State::segment) return begin_body(length, received);
    if (received == length) take_playlist();
  }

 private:
  enum class State { waiting, playlist, segment, body };

  void ask(const std::string& name, State state) {
    const std::string text = fmt::format("GET /0/{} HTTP/1.1\r\nHost: localhost\r\n\r\n", name);
    if (send(socket_, text.data(), text.size(), MSG_NOSIGNAL) < 0) std::exit(1);
    answer_.clear();
    state_ = state;
  }
  void take_playlist() {
    const bool is_first = newest_.empty();
    std::istringstream lines(answer_.substr(answer_.find("#EXTM3U")));
    for (std::string line; std::getline(lines, line);) {
      // Of one length, their names order as their numbers do.
      if (line.starts_with('#') || line <= newest_) continue;
      if (is_first) wanted_.clear();
      wanted_.push_back(line);
    }
    if (!wanted_.empty()) newest_ = wanted_.back();
    ask_for_next();
  }
  void ask_for_next() {
    state_ = State::waiting;
    if (wanted_.empty()) return;
    ask(wanted_.front(), State::segment);
    wanted_.pop_front();
  }
  void begin_body(std::size_t length, std::size_t received) {
    bytes += received;
    left_ = length - received;
    state_ = State::body;
    if (left_ == 0) finish_segment();
  }
  // With MSG_TRUNC the system drops the bytes: only the server's work is to be seen.
  void drop_body() {
    const ssize_t size = recv(socket_, nullptr, left_, MSG_TRUNC | MSG_DONTWAIT);
    if (size <= 0) return;
    bytes += static_cast<std::size_t>(size);
    left_ -= static_cast<std::size_t>(size);
    if (left_ == 0) finish_segment();
  }
  void finish_segment() {
    ++segments;
    ask_for_next();
  }

  int socket_;
  State state_ = State::waiting;
  Clock::time_point due_;
  std::string answer_;
  std::string newest_;
  std::deque<std::string> wanted_;
  std::size_t left_ = 0;
};

/// What viewers received together.
struct Received {
  std::size_t segments = 0;
  std::size_t bytes = 0;
  std::size_t failures = 0;
};

Received watch(std::vector<std::unique_ptr<Viewer>>& viewers, int epoll, std::chrono::seconds time) {
  std::array<epoll_event, 256> events;
  const auto end = Clock::now() + time;
  while (Clock::now() < end) {
    const int count = epoll_wait(epoll, events.data(), static_cast<int>(events.size()), 5);
    for (int i = 0; i < count; ++i) viewers[events[static_cast<std::size_t>(i)].data.u64]->receive();
    const auto time_now = Clock::now();
    for (const auto& viewer : viewers) viewer->ask_when_due(time_now);
  }
  Received received;
  for (const auto& viewer : viewers) {
    received.segments += viewer->segments;
    received.bytes += viewer->bytes;
    received.failures += viewer->failures;
  }
  return received;
}

// The figure after `name` in JSON text.
std::string figure_after(const std::string& json, const std::string& name) {
  const std::size_t begin = std::min(json.find("\"" + name + "\":"), json.size());
  const std::string_view rest = std::string_view(json).substr(std::min(begin + name.size() + 3, json.size()));
  return std::string(rest.substr(0, rest.find_first_of(",}")));
}

void print_longest_turn() {
  const std::string system = request("GET", "/api/system");
  fmt::print("longest turn of the loop: {} ms, longest lag of a timer: {} ms\n",
             figure_after(system, "longest_turn_ms"), figure_after(system, "longest_lag_ms"));
}

void measure(pid_t server, std::size_t count, int seconds) {
  const double memory_before = resident_mebibytes(server);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  std::vector<std::unique_ptr<Viewer>> viewers;
  for (std::size_t i = 0; i < count; ++i) {
    viewers.push_back(std::make_unique<Viewer>(Clock::now() + i * segment_time / count));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = i;
    epoll_ctl(epoll, EPOLL_CTL_ADD, viewers[i]->socket(), &event);
  }
  const Received before = watch(viewers, epoll, 2 * segment_time);
  const double cpu = cpu_seconds(server);
  request("DELETE", "/api/system/longest");
  Prober prober(server);
  const Received after = watch(viewers, epoll, std::chrono::seconds(seconds));
  const auto [times, cpus] = prober.finish();
  const double used = cpu_seconds(server) - cpu;
  fmt::print(
      "{} viewers: {} segments, {:.2f} Mbit/s each, {} requests failed\n", count, after.segments - before.segments,
      static_cast<double>(after.bytes - before.bytes) * 8e-6 / seconds / static_cast<double>(count), after.failures);
  fmt::print("server: {:.0f} % of a core, {:.1f} MiB resident ({:.1f} before they came)\n", 100 * used / seconds,
             resident_mebibytes(server), memory_before);
  print_rounds(times, cpus);
  print_longest_turn();
  close(epoll);
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  if (argc < 2) {
    fmt::print(stderr, "usage: {} SERVER [VIEWERS [SECONDS]]\n", argv[0]);
    return 2;
  }
  raise_descriptor_limit();
  std::string data = (fs::temp_directory_path() / "weir-bench-XXXXXX").string();
  if (!mkdtemp(data.data())) return 1;
  make_source(data + "/source.ts");
  const pid_t server = spawn_server(argv[1], data, {"--file-root", data});
  start_copy(data + "/source.ts", R"({"protocol": "hls", "playlist_name": "index.m3u8"})", "/0/index.m3u8");
  std::this_thread::sleep_for(20s);
  measure(server, argc > 2 ? static_cast<std::size_t>(std::atoi(argv[2])) : 500, argc > 3 ? std::atoi(argv[3]) : 20);
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  fs::remove_all(data);
}
