// What subscribers of events cost: CPU and memory of the server with all streams running and changing their figures,
// first without a subscriber, then with those that read, then with as many more that stop reading at once.
//
//     bench_events SERVER TRANSCODER [SECONDS [STREAMS [SUBSCRIBERS]]]

#include <sys/epoll.h>
#include <sys/resource.h>

#include <filesystem>

#include "bench/loopback_server.h"
#include "bench/process_usage.h"
#include "bench/stream_files.h"

namespace weir::bench {

namespace {

int subscribe() {
  const int connection = connect_to_server();
  const std::string text = "GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n";
  if (connection < 0 || send(connection, text.data(), text.size(), MSG_NOSIGNAL) < 0) std::exit(1);
  return connection;
}

/// Subscribers that read whatever comes, on a thread of their own.
class Subscribers {
 public:
  explicit Subscribers(int count) : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    for (int i = 0; i < count; ++i) {
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.fd = subscribe();
      epoll_ctl(epoll_, EPOLL_CTL_ADD, event.data.fd, &event);
      connections_.push_back(event.data.fd);
    }
    thread_ = std::thread([this] { read_all(); });
  }
  ~Subscribers() {
    finished_ = true;
    thread_.join();
    for (const int connection : connections_) close(connection);
    close(epoll_);
  }
  Subscribers(const Subscribers&) = delete;
  Subscribers& operator=(const Subscribers&) = delete;

  double megabytes() const { return static_cast<double>(bytes_) / 1e6; }
  int lost() const { return lost_; }

 private:
  void read_all() {
    std::array<epoll_event, 64> events;
    static std::array<char, 1 << 18> buffer;
    while (!finished_) {
      const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 100);
      for (int i = 0; i < count; ++i) {
        const int connection = events[static_cast<std::size_t>(i)].data.fd;
        const ssize_t size = read(connection, buffer.data(), buffer.size());
        if (size > 0) {
          bytes_ += static_cast<std::size_t>(size);
          continue;
        }
        ++lost_;
        epoll_ctl(epoll_, EPOLL_CTL_DEL, connection, nullptr);
      }
    }
  }

  int epoll_;
  std::vector<int> connections_;
  std::atomic<std::size_t> bytes_ = 0;
  std::atomic<int> lost_ = 0;
  std::atomic<bool> finished_ = false;
  std::thread thread_;
};

void measure(const char* name, pid_t pid, int seconds, const Subscribers* subscribers) {
  const Usage before = usage_of(pid);
  const double bytes_before = subscribers ? subscribers->megabytes() : 0;
  const auto begin = Clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double passed = std::chrono::duration<double>(Clock::now() - begin).count();
  const Usage after = usage_of(pid);
  const double megabytes = (subscribers ? subscribers->megabytes() : 0) - bytes_before;
  fmt::print("{:<34} {:6.2f} % of a core  {:6.1f} MB  {:6.2f} MB/s to subscribers  {} lost\n", name,
             100 * (after.cpu_seconds - before.cpu_seconds) / passed, resident_mebibytes(pid), megabytes / passed,
             subscribers ? subscribers->lost() : 0);
}

void run(const std::string& server, const std::string& transcoder, int seconds, int streams, int count) {
  setenv("FAKE_FIGURES", "1", 1);
  std::string data = (std::filesystem::temp_directory_path() / "weir-bench-XXXXXX").string();
  if (!mkdtemp(data.data())) std::exit(1);
  std::filesystem::create_directories(data + "/streams");
  write_stream_files(data + "/streams", streams);
  const pid_t pid = spawn_server(server, data, {"--ffmpeg", transcoder});
  std::string ids;
  for (int i = 0; i < streams; ++i) ids += fmt::format("{}{}", i ? "," : "", i);
  request("POST", "/api/batch/start", fmt::format(R"({{"ids":[{}],"interval":0}})", ids));
  std::this_thread::sleep_for(10s);
  measure("no subscriber", pid, seconds, nullptr);
  {
    const Subscribers subscribers(count);
    std::this_thread::sleep_for(3s);
    measure(fmt::format("{} subscribers", count).c_str(), pid, seconds, &subscribers);
    std::vector<int> silent;
    for (int i = 0; i < count; ++i) silent.push_back(subscribe());
    std::this_thread::sleep_for(3s);
    measure(fmt::format("and {} that do not read", count).c_str(), pid, seconds, &subscribers);
    for (const int connection : silent) close(connection);
    const std::string metrics = request("GET", "/metrics");
    const std::size_t at = metrics.find("\nweir_event_subscribers ");
    fmt::print("subscribers at the end: {}\n", metrics.substr(at + 24, metrics.find('\n', at + 1) - at - 24));
  }
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
  std::filesystem::remove_all(data);
}

}  // namespace

}  // namespace weir::bench

int main(int argc, char** argv) {
  if (argc < 3) {
    fmt::print(stderr, "usage: {} SERVER TRANSCODER [SECONDS [STREAMS [SUBSCRIBERS]]]\n", argv[0]);
    return 2;
  }
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const auto argument = [&](int index, int fallback) { return argc > index ? std::atoi(argv[index]) : fallback; };
  weir::bench::run(argv[1], argv[2], argument(3, 20), argument(4, 1000), argument(5, 200));
}
