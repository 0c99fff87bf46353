// How long faults hold up the loop: a server with healthy streams meets one fault after the other, three streams at a
// time, while GET /healthz goes round every 2 ms. Says too whether a healthy transcoder was restarted, and how the
// faulty streams stand at the end.
//
//     bench_faults SERVER FAKE_TRANSCODER PROGRAMS [SECONDS [HEALTHY]]
//
// PROGRAMS is tests/integration/programs. The full disk is a small tmpfs: without the right to mount it is left out.

#include <fmt/core.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "bench/loopback_server.h"

namespace {

namespace fs = std::filesystem;
using namespace weir::bench;
using namespace std::chrono_literals;

constexpr int faulty = 3;

/// The server and its data directory.
class Server {
 public:
  Server(const std::string& program, fs::path programs) : programs_(std::move(programs)) {
    data_ = (fs::temp_directory_path() / "weir-bench-XXXXXX").string();
    if (!mkdtemp(data_.data())) std::exit(1);
    small_disk_ = mount("none", data_.c_str(), "tmpfs", 0, "size=4m") == 0;
    put_transcoder();
    pid_ = spawn_server(program, data_, {"--ffmpeg", transcoder_path(), "--file-root", "/"});
  }
  ~Server() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    umount2(data_.c_str(), MNT_DETACH);
    fs::remove_all(data_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  pid_t pid() const { return pid_; }
  const std::string& data() const { return data_; }
  bool has_small_disk() const { return small_disk_; }
  fs::path program(const char* name) const { return programs_ / name; }
  std::string transcoder_path() const { return data_ + "/transcoder"; }
  void put_transcoder() const {
    fs::copy_file(program("runs_its_input"), transcoder_path(), fs::copy_options::overwrite_existing);
    fs::permissions(transcoder_path(), fs::perms::owner_all);
  }

  int add(const fs::path& program_of_stream) {
    request("POST", "/api/streams",
            fmt::format(R"({{"label":"s","input":{{"0":{{"url":"{}"}}}},)"
                        R"("output":{{"0":{{"protocol":"hls","playlist_name":"index.m3u8"}}}}}})",
                        program_of_stream.string()));
    return next_id_++;
  }
  void order(int id, const char* what) const { request("POST", fmt::format("/api/streams/{}/{}", id, what)); }
  std::string stream(int id) const { return request("GET", fmt::format("/api/streams/{}", id)); }

  std::vector<pid_t> children() const {
    std::ifstream list(fmt::format("/proc/{0}/task/{0}/children", pid_));
    return {std::istream_iterator<pid_t>(list), {}};
  }

 private:
  fs::path programs_;
  std::string data_;
  pid_t pid_ = 0;
  int next_id_ = 0;
  bool small_disk_ = false;
};

struct Fault {
  const char* name;
  const char* program;
  std::function<void(const std::vector<int>&)> strike = [](const auto&) {};  ///< once the streams run
  std::function<void()> before = [] {};                                      ///< before they are started
  std::function<void()> repair = [] {};
};

std::string statuses(const Server& server, const std::vector<int>& ids) {
  std::string words;
  for (const int id : ids) {
    const std::string record = server.stream(id);
    const std::string before = "\"status\":\"";
    const std::size_t at = record.find(before);
    const std::string rest = at == std::string::npos ? "none" : record.substr(at + before.size());
    words += (words.empty() ? "" : ", ") + rest.substr(0, rest.find('"'));
  }
  return words;
}

void measure(Server& server, const Fault& fault, int seconds, std::size_t healthy) {
  std::vector<int> ids;
  for (int i = 0; i < faulty; ++i) ids.push_back(server.add(server.program(fault.program)));
  std::vector<pid_t> before = server.children();
  before.resize(healthy);
  fault.before();
  Prober prober(server.pid());
  const double cpu = cpu_seconds(server.pid());
  const auto begin = Clock::now();
  for (const int id : ids) server.order(id, "start");
  std::this_thread::sleep_for(500ms);
  fault.strike(ids);
  std::this_thread::sleep_until(begin + std::chrono::seconds(seconds));
  const std::string seen = statuses(server, ids);
  for (const int id : ids) server.order(id, "stop");
  const double load = (cpu_seconds(server.pid()) - cpu) / std::chrono::duration<double>(Clock::now() - begin).count();
  std::this_thread::sleep_for(2500ms);
  const std::vector<double> rounds = prober.finish().times;
  fault.repair();
  std::vector<pid_t> after = server.children();
  after.resize(healthy);
  fmt::print("{:<42} {:>6} rounds  99 % {:5.2f} ms  longest {:6.2f} ms  {:5.1f} % of a core  {}; faulty ones: {}\n",
             fault.name, rounds.size(), rounds[rounds.size() * 99 / 100], rounds.back(), 100 * load,
             before == after ? "healthy ones untouched" : "HEALTHY ONES RESTARTED", seen);
  std::fflush(stdout);
}

std::vector<Fault> faults(Server& server) {
  const auto set_descriptors = [&server](rlim_t soft) {
    rlimit limit{};
    prlimit(server.pid(), RLIMIT_NOFILE, nullptr, &limit);
    limit.rlim_cur = soft ? soft : limit.rlim_max;
    prlimit(server.pid(), RLIMIT_NOFILE, &limit, nullptr);
  };
  const auto hls = [&server](int id) { return fmt::format("{}/hls/{}", server.data(), id); };
  const auto document = [&server](int id) { return fmt::format("{}/streams/{}.conf", server.data(), id); };
  const auto restart_all = [&server](const std::vector<int>& ids) {
    for (const int id : ids) server.order(id, "restart");
  };
  std::vector<Fault> list{
      {.name = "none", .program = "goes_on"},
      {.name = "program missing",
       .program = "goes_on",
       .before = [&server] { fs::remove(server.transcoder_path()); },
       .repair = [&server] { server.put_transcoder(); }},
      {.name = "program not executable",
       .program = "goes_on",
       .before = [&server] { fs::permissions(server.transcoder_path(), fs::perms::owner_read); },
       .repair = [&server] { server.put_transcoder(); }},
      {.name = "program ends at once", .program = "ends_at_once"},
      {.name = "program ignores SIGTERM", .program = "ignores_signals", .strike = restart_all},
      {.name = "program leaves children", .program = "leaves_children", .strike = restart_all},
      {.name = "program floods standard error", .program = "floods"},
      {.name = "program prints one endless line", .program = "prints_an_endless_line"},
      {.name = "program closes standard error", .program = "closes_its_output"},
      {.name = "HLS directory removed",
       .program = "goes_on",
       .strike =
           [hls](const std::vector<int>& ids) {
             for (const int id : ids) fs::remove_all(hls(id));
           }},
      {.name = "document replaced by a directory",
       .program = "goes_on",
       .strike =
           [document, restart_all](const std::vector<int>& ids) {
             for (const int id : ids) fs::remove(document(id)), fs::create_directory(document(id));
             restart_all(ids);
           }},
      {.name = "no descriptors left",
       .program = "goes_on",
       .before =
           [&server, set_descriptors] {
             const auto used = std::distance(fs::directory_iterator(fmt::format("/proc/{}/fd", server.pid())), {});
             set_descriptors(static_cast<rlim_t>(used) + 4);
           },
       .repair = [set_descriptors] { set_descriptors(0); }},
  };
  if (!server.has_small_disk()) return list;
  list.push_back({.name = "disk full",
                  .program = "goes_on",
                  .strike =
                      [&server, restart_all](const std::vector<int>& ids) {
                        std::ofstream filler(server.data() + "/filler");
                        while (filler << std::string(4096, 'x') << std::flush) continue;
                        restart_all(ids);
                      },
                  .repair = [&server] { fs::remove(server.data() + "/filler"); }});
  return list;
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  if (argc < 4) {
    fmt::print(stderr, "usage: {} SERVER FAKE_TRANSCODER PROGRAMS [SECONDS [HEALTHY]]\n", argv[0]);
    return 2;
  }
  const int seconds = argc > 4 ? std::atoi(argv[4]) : 7;
  const int healthy = argc > 5 ? std::atoi(argv[5]) : 20;
  Server server(argv[1], fs::absolute(argv[3]));
  for (int i = 0; i < healthy; ++i) server.order(server.add(fs::absolute(argv[2])), "start");
  for (int i = 0; i < 500 && server.stream(healthy - 1).find(R"("running")") == std::string::npos; ++i)
    std::this_thread::sleep_for(20ms);
  std::this_thread::sleep_for(1s);
  for (const Fault& fault : faults(server)) measure(server, fault, seconds, static_cast<std::size_t>(healthy));
}
