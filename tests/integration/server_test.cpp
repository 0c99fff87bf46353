// The real server: its start and end, and what goes wrong around it. The stream beside the trouble does not notice.

#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/integration/server_fixture.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::eventually;
using test::ServerProcess;

class ServerTest : public test::ServerFixture {};

TEST_F(ServerTest, AKilledServerLeavesNoTranscoderAndLosesAtMostASecondOfItsHistory) {
  using Clock = std::chrono::steady_clock;
  add("ends_at_once");
  server->request("POST", "/api/streams/1/start");
  std::vector<std::pair<std::string, Clock::time_point>> labels;
  const auto end = Clock::now() + 2s;
  while (Clock::now() < end) {
    const std::string label = "label " + std::to_string(labels.size());
    server->request("PATCH", "/api/streams/1", R"({"label":")" + label + R"("})");
    labels.emplace_back(label, Clock::now());
  }
  const auto killed = Clock::now();
  const pid_t before = first_pid;
  server->end(SIGKILL);
  EXPECT_TRUE(eventually([&] { return !test::runs(before); }, 1s));
  serve();
  expect_stream_0_on_air();
  EXPECT_NE(first_pid, before);
  const std::string history = get(1, "/history?kind=changed&limit=1000");
  for (const auto& [label, time] : labels)
    if (killed - time > 1s) EXPECT_NE(history.find("\"" + label + "\""), std::string::npos) << label << history;
  EXPECT_NE(get(0, "/history?limit=5").find("\"server_end\""), std::string::npos);
  EXPECT_FALSE(fs::exists(data + "/journal.db.broken"));
  server->request("POST", "/api/streams/1/stop");
}

TEST_F(ServerTest, AServerThatEndsTakesItsTranscodersAlongAndLeavesTheFilesAsTheyWere) {
  EXPECT_EQ(server->end(SIGTERM), 0) << server->log();
  EXPECT_FALSE(test::runs(first_pid));
  EXPECT_EQ(saved_status(0), "running");
  EXPECT_NE(server->log().find("Every transcoder has ended"), std::string::npos) << server->log();
  first_pid = 0;
}

TEST_F(ServerTest, AServerThatCannotStartSaysWhyAndEnds) {
  const std::string port = std::to_string(server->port());
  std::ofstream(at("file")) << "in the way";
  fs::create_directories(at("unwritable") + "/streams/0.conf.tmp");  // where the new text of the file is written
  std::ofstream(at("unwritable") + "/streams/0.conf") << R"({"input": {}, "output": {}})";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--data", data, "--port", "0"}, "process " + std::to_string(server->pid())},
      {{"--data", at("other"), "--port", port}, "port " + port + ": Address already in use"},
      {{"--data", at("file"), "--port", "0"}, at("file")},
      {{"--data", at("unwritable"), "--port", "0"}, "No stream can be loaded"},
  };
  for (const auto& [arguments, expected] : cases) {
    ServerProcess refused(arguments, at("refused"));
    EXPECT_EQ(refused.wait(), 1) << expected;
    EXPECT_NE(refused.log().find(expected), std::string::npos) << refused.log();
  }
}

TEST_F(ServerTest, HoldsBackTranscodersThatPrintWithoutEndAndKeepsABoundedLog) {
  // At most so many bytes are kept of what comes through in half a second, up to 1.5 MB.
  const std::pair<const char*, std::size_t> cases[] = {{"floods", 256 << 10}, {"prints_an_endless_line", 64 << 10}};
  int id = 0;
  for (const auto& [name, kept] : cases) {
    add(name);
    server->request("POST", "/api/streams/" + std::to_string(++id) + "/start");
    ASSERT_TRUE(eventually_has(id, R"("status":"running")")) << name;
    std::this_thread::sleep_for(500ms);
    server->request("POST", "/api/streams/" + std::to_string(id) + "/stop");
    EXPECT_TRUE(eventually_has(id, R"("status":"stopped")")) << name;
    const std::string log = get(id, "/log");
    const std::size_t times = 25 * static_cast<std::size_t>(std::ranges::count(log, '\n'));
    EXPECT_LE(log.size() - log.find("\r\n\r\n"), kept + times + 2048) << name;
    EXPECT_GE(log.size() - log.find("\r\n\r\n"), 60u << 10) << name;
  }
}

TEST_F(ServerTest, ChildrenOfATranscoderDieWithItsGroup) {
  add("leaves_children");
  server->request("POST", "/api/streams/1/start");
  ASSERT_TRUE(eventually_has(1, R"("status":"running")"));
  const std::string text = get(1, "/log");
  std::istringstream log(text.substr(text.find("child ")));
  std::string word;
  pid_t of_the_group = 0;
  pid_t elsewhere = 0;
  log >> word >> of_the_group >> word >> word >> elsewhere;
  ASSERT_TRUE(test::runs(of_the_group) && test::runs(elsewhere)) << log.str();
  server->request("POST", "/api/streams/1/stop");
  EXPECT_TRUE(eventually([&] { return !test::runs(of_the_group); }, 1s));
  EXPECT_TRUE(test::runs(elsewhere)) << "out of reach, and it holds the pipe";
  EXPECT_TRUE(eventually_has(1, R"("status":"stopped")"));
  ::kill(elsewhere, SIGKILL);
}

TEST_F(ServerTest, OutOfDescriptorsItGoesOnAndSaysSo) {
  add("goes_on");
  const pid_t pid = server->pid();
  const auto in_use = std::distance(fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
  rlimit original{};
  ::prlimit(pid, RLIMIT_NOFILE, nullptr, &original);
  // A request and a file at a time are possible, a child's three pipes are not.
  const rlimit low{static_cast<rlim_t>(in_use) + 3, original.rlim_max};
  ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &low, nullptr), 0);
  server->request("POST", "/api/streams/1/start");
  EXPECT_TRUE(eventually([&] { return server->log().find("Too many open files") != std::string::npos; }, 10s));
  EXPECT_TRUE(eventually_has(1, R"("status":"restarting")"));
  ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &original, nullptr), 0);
  EXPECT_TRUE(eventually_has(1, R"("status":"running")")) << server->log();
}

/// With its data on a small file system of its own.
class FullDiskTest : public ServerTest {
 protected:
  void SetUp() override {
    fs::create_directories(data);
    if (::mount("none", data.c_str(), "tmpfs", 0, "size=128k") != 0) GTEST_SKIP() << "only the superuser can mount";
    ServerTest::SetUp();
  }
  void TearDown() override {
    if (server) ServerTest::TearDown();
    ::umount2(data.c_str(), MNT_DETACH);
  }
  void fill() const {
    std::ofstream filler(data + "/filler");
    while (filler << std::string(4096, 'x') << std::flush) continue;
  }
};

TEST_F(FullDiskTest, StreamsGoOnWithoutDiskAndNothingSavedIsLost) {
  add("goes_on");
  server->request("POST", "/api/streams/1/start");
  ASSERT_TRUE(eventually_has(1, R"("status":"running")"));
  fill();
  const std::string refused = add("goes_on");
  EXPECT_TRUE(refused.starts_with("HTTP/1.1 500")) << refused;
  EXPECT_NE(refused.find("No space left on device"), std::string::npos) << refused;
  EXPECT_FALSE(fs::exists(file(2)) || fs::exists(file(2) + ".tmp"));
  server->request("POST", "/api/streams/1/stop");
  EXPECT_TRUE(eventually_has(1, R"("status":"stopped")"));
  EXPECT_EQ(saved_status(1), "stopped") << "a status needs no room";
  fs::remove(data + "/filler");
  server->request("POST", "/api/streams/1/start");
  EXPECT_TRUE(eventually([&] { return saved_status(1) == "running"; }, 10s));
}

TEST(DemoTest, TheDemoStreamPlaysInTwoRenditions) {
  const test::TemporaryDirectory directory;
  fs::create_directories(directory.path() / "data/streams");
  fs::copy_file(WEIR_TEST_DATA "/../../../scripts/demo_stream.json", directory.path() / "data/streams/0.conf");
  ServerProcess server({"--data", directory.path() / "data", "--port", "0", "--hardware", "nvenc,qsv"},
                       directory.path() / "log");
  ASSERT_TRUE(server.is_ready()) << server.log();
  EXPECT_NE(server.request("GET", "/api/version").find("+nvenc.qsv\""), std::string::npos);
  const auto playlist = [&](const std::string& name) { return server.request("GET", "/0/" + name); };
  ASSERT_TRUE(eventually([&] { return playlist("index.m3u8").starts_with("HTTP/1.1 200"); }))
      << server.request("GET", "/api/streams/0/log");
  EXPECT_NE(playlist("index.m3u8")
                .find("CODECS=\"avc1.64001f,mp4a.40.2\",RESOLUTION=1280x720,FRAME-RATE=25.000\nplaylist_0.m3u8"),
            std::string::npos);
  EXPECT_NE(playlist("index.m3u8").find("RESOLUTION=640x360,FRAME-RATE=25.000\nplaylist_1.m3u8"), std::string::npos);
}

}  // namespace
}  // namespace weir
