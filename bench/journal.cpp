// What the history survives and what it costs: the server is killed again and again while it writes; then a day of
// crash loops is written as fast as it can be.
//
//     bench_journal SERVER PROGRAMS [KILLS]
//
// PROGRAMS is tests/integration/programs.

#include <signal.h>
#include <sys/resource.h>

#include <filesystem>
#include <random>

#include "backend/services/journal/journal_database.h"
#include "bench/loopback_server.h"

namespace {

namespace fs = std::filesystem;
using namespace weir;
using namespace weir::bench;

constexpr int looping = 20;

double seconds(auto duration) { return std::chrono::duration<double>(duration).count(); }

/// Kills a server that writes history as fast as its streams can be restarted, and looks at what it left.
class Kills {
 public:
  Kills(std::string server, const fs::path& programs) : server_(std::move(server)), programs_(programs) {
    data_ = (fs::temp_directory_path() / "weir-bench-XXXXXX").string();
    if (!mkdtemp(data_.data())) std::exit(1);
  }
  ~Kills() { fs::remove_all(data_); }
  Kills(const Kills&) = delete;
  Kills& operator=(const Kills&) = delete;

  /// Seconds before the kill of the first change that is missing; 0 when none is.
  double strike(std::chrono::milliseconds after) {
    const pid_t pid =
        spawn_server(server_, data_, {"--ffmpeg", programs_ / "runs_its_input", "--file-root", programs_});
    if (changes_ == 0) add_streams();
    std::vector<std::pair<int, bench::Clock::time_point>> answered;
    const auto end = bench::Clock::now() + after;
    while (bench::Clock::now() < end) {
      const bool done = request("PATCH", "/api/streams/0", fmt::format(R"({{"label":"{}"}})", ++changes_))
                            .starts_with("HTTP/1.1 200");
      if (done) answered.emplace_back(changes_, bench::Clock::now());
    }
    const auto killed = bench::Clock::now();
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    asked_ += answered.size();
    const int last = last_written_change();
    for (const auto& [change, time] : answered)
      if (change > last) return seconds(killed - time);
    return 0;
  }

  std::size_t asked() const { return asked_; }
  std::uintmax_t bytes() const { return fs::file_size(data_ + "/journal.db"); }
  bool is_whole() const { return !fs::exists(data_ + "/journal.db.broken"); }

 private:
  void add_streams() const {
    for (int i = 0; i <= looping; ++i)
      request("POST", "/api/streams",
              fmt::format(R"({{"label":"s","input":{{"0":{{"url":"{}"}}}},)"
                          R"("output":{{"0":{{"protocol":"udp","hostname":"127.0.0.1","port":9}}}}}})",
                          (programs_ / "ends_at_once").string()));
    for (int i = 1; i <= looping; ++i) request("POST", fmt::format("/api/streams/{}/start", i));
  }

  int last_written_change() const {
    Sqlite sqlite(data_ + "/journal.db");
    SqliteStatement check = sqlite.prepare("PRAGMA integrity_check");
    check.step();
    if (check.read_text() != "ok") {
      fmt::print("the database is damaged\n");
      std::exit(1);
    }
    check.reset();
    SqliteStatement newest = sqlite.prepare(
        "SELECT CAST(label AS INTEGER) FROM entries WHERE stream = 0 AND kind = 'changed' ORDER BY number DESC LIMIT "
        "1");
    return newest.step() ? static_cast<int>(newest.read_integer()) : 0;
  }

  std::string server_;
  fs::path programs_;
  std::string data_;
  int changes_ = 0;
  std::size_t asked_ = 0;
};

void kill_again_and_again(const std::string& server, const fs::path& programs, int rounds) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> milliseconds(1100, 2100);
  Kills kills(server, programs);
  double longest = 0;
  for (int i = 0; i < rounds; ++i)
    longest = std::max(longest, kills.strike(std::chrono::milliseconds(milliseconds(random))));
  fmt::print("{} kills, {} changes: {}; at most the last {:.2f} s are missing; {} KB\n", rounds, kills.asked(),
             kills.is_whole() ? "every database opened" : "A DATABASE WAS SET ASIDE", longest, kills.bytes() / 1024);
  std::fflush(stdout);
}

std::uint64_t written_bytes() {
  std::ifstream figures("/proc/self/io");
  std::string name;
  for (std::uint64_t value = 0; figures >> name >> value;)
    if (name == "wchar:") return value;
  return 0;
}

double own_cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto sum = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return sum(usage.ru_utime) + sum(usage.ru_stime);
}

/// Every stream ends each five seconds, after two on the air; one batch a second.
void write_loops(const char* name, int streams, std::chrono::seconds length, bool equal) {
  const std::string path = fs::temp_directory_path() / fmt::format("weir-bench-{}.db", getpid());
  const double cpu = own_cpu_seconds();
  const std::uint64_t bytes = written_bytes();
  std::uint64_t number = 0;
  std::uintmax_t size = 0;
  std::size_t rows = 0;
  {
    JournalDatabase database(path, {});
    const WallTime begin(1'800'000'000s);
    for (auto second = 0s; second < length; ++second) {
      std::vector<JournalEntry> batch;
      for (int stream = static_cast<int>(second.count() % 5); stream < streams; stream += 5) {
        JournalEntry entry{.time = begin + second, .kind = JournalKind::running, .stream_id = stream, .label = "News"};
        entry.number = ++number;
        entry.cycle = second.count() / 5;
        entry.input = 0;
        entry.process = 4711;
        entry.cycle_seconds = 0.4;
        batch.push_back(entry);
        entry.number = ++number;
        entry.kind = JournalKind::ended;
        entry.cause = Cause::exited;
        entry.exit_status = 1;
        entry.on_air_seconds = 2;
        entry.cycle_seconds = 2.4;
        entry.retry_seconds = 3;
        entry.text = "rtmp://ingest.example.org/live/news: Connection refused";
        if (!equal) entry.text += fmt::format(" after {} packets", number);
        batch.push_back(entry);
      }
      database.write(batch, begin + second);
    }
    rows = database.find({.limit = 10'000'000}).size();
    size = fs::file_size(path) + fs::file_size(path + "-wal");
  }
  fmt::print(
      "{:<40} {:>9} entries, {:>8} rows, {:>7} KB on disk, {:>6} MB written, {:6.2f} s of CPU, {:5.1f} us each\n", name,
      number, rows, size / 1024, (written_bytes() - bytes) >> 20, own_cpu_seconds() - cpu,
      1e6 * (own_cpu_seconds() - cpu) / static_cast<double>(number));
  std::fflush(stdout);
  fs::remove(path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fmt::print(stderr, "usage: {} SERVER PROGRAMS [KILLS]\n", argv[0]);
    return 2;
  }
  kill_again_and_again(argv[1], fs::absolute(argv[2]), argc > 3 ? std::atoi(argv[3]) : 50);
  write_loops("one stream's day, equal ends", 1, 24h, true);
  write_loops("one stream's day, each end different", 1, 24h, false);
  write_loops("1000 streams' ten minutes, equal ends", 1000, 10min, true);
  write_loops("1000 streams' ten minutes, different", 1000, 10min, false);
}
