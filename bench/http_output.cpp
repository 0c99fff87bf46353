// What viewers of an HTTP output cost: a copied MPEG-TS of about 4 Mbit/s to many viewers at once. Shows what each
// received, the server's CPU and memory, and the longest rounds of GET /healthz meanwhile: in time, and in CPU that the
// server used until it answered.
//
//     bench_http_output SERVER [VIEWERS [SECONDS]]

#include <fmt/core.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/live_source.h"
#include "bench/loopback_server.h"
#include "bench/process_usage.h"

namespace {

namespace fs = std::filesystem;
using namespace weir::bench;

constexpr const char* target = "/stream/0/live.ts";

/// Viewers who read all that comes and keep nothing of it.
class Viewers {
 public:
  explicit Viewers(std::size_t count) : sockets_(count), received_(count) {
    const std::string text = fmt::format("GET {} HTTP/1.1\r\nHost: localhost\r\n\r\n", target);
    for (std::size_t i = 0; i < count; ++i) {
      sockets_[i] = connect_to_server();
      if (sockets_[i] < 0 || write(sockets_[i], text.data(), text.size()) < 0) std::exit(1);
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = i;
      epoll_ctl(epoll_, EPOLL_CTL_ADD, sockets_[i], &event);
    }
    thread_ = std::thread([this] { run(); });
  }
  ~Viewers() {
    finished_ = true;
    thread_.join();
    for (const int socket : sockets_) close(socket);
    close(epoll_);
  }

  std::vector<std::size_t> received() const { return {received_.begin(), received_.end()}; }
  std::size_t ended() const { return ended_; }

 private:
  void run() {
    std::array<epoll_event, 256> events;
    while (!finished_) {
      const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 100);
      for (int i = 0; i < count; ++i) take(events[static_cast<std::size_t>(i)].data.u64);
    }
  }
  void take(std::size_t viewer) {
    // With MSG_TRUNC the system drops the bytes: only the server's work is to be seen.
    const ssize_t size = recv(sockets_[viewer], nullptr, 1 << 20, MSG_TRUNC | MSG_DONTWAIT);
    if (size > 0) received_[viewer] += static_cast<std::size_t>(size);
    if (size != 0) return;
    ++ended_;
    epoll_ctl(epoll_, EPOLL_CTL_DEL, sockets_[viewer], nullptr);
  }

  int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  std::vector<int> sockets_;
  std::vector<std::atomic<std::size_t>> received_;
  std::atomic<std::size_t> ended_ = 0;
  std::atomic<bool> finished_ = false;
  std::thread thread_;
};

void measure(pid_t server, std::size_t count, int seconds) {
  std::this_thread::sleep_for(5s);
  const double memory_before = resident_mebibytes(server);
  Viewers viewers(count);
  std::this_thread::sleep_for(5s);
  const std::vector<std::size_t> before = viewers.received();
  const double cpu = cpu_seconds(server);
  const auto begin = Clock::now();
  Prober prober(server);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const auto [times, cpus] = prober.finish();
  const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
  const double used = cpu_seconds(server) - cpu;
  std::vector<double> rates;
  for (std::size_t i = 0; i < count; ++i)
    rates.push_back(static_cast<double>(viewers.received()[i] - before[i]) * 8e-6 / elapsed);
  std::ranges::sort(rates);
  fmt::print("{} viewers, {} ended early: {:.2f} Mbit/s each, slowest {:.2f}\n", count, viewers.ended(),
             rates[rates.size() / 2], rates.front());
  fmt::print("server: {:.0f} % of a core, {:.1f} MiB resident ({:.1f} before they came)\n", 100 * used / elapsed,
             resident_mebibytes(server), memory_before);
  print_rounds(times, cpus);
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
  start_copy(data + "/source.ts", R"({"protocol": "http", "filename": "live.ts"})", target);
  measure(server, argc > 2 ? static_cast<std::size_t>(std::atoi(argv[2])) : 500, argc > 3 ? std::atoi(argv[3]) : 20);
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  fs::remove_all(data);
}
