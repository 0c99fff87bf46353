// The real server: its start and end, and what goes wrong around it. The stream beside the trouble does not notice.

#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/server_fixture.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::eventually;
using test::ServerProcess;

class ServerTest : public test::ServerFixture {};

TEST_F(ServerTest, AKilledServerLeavesNoTranscoderAndTheNextOneGoesOn) {
  const pid_t before = first_pid;
  server->end(SIGKILL);
  EXPECT_TRUE(eventually([&] { return !test::runs(before); }, 1s));
  serve();
  expect_stream_0_on_air();
  EXPECT_NE(first_pid, before);
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
  const struct {
    std::vector<std::string> arguments;
    std::string expected;
  } cases[] = {
      {{"--data", data, "--port", "0"}, "process " + std::to_string(server->pid())},
      {{"--data", at("other"), "--port", port}, "port " + port + ": Address already in use"},
      {{"--data", at("file"), "--port", "0"}, at("file")},
      {{"--data", at("unwritable"), "--port", "0"}, "No stream can be loaded"},
      {{"--data", at("other"), "--bind", "0.0.0.0"}, "authentication"},
      {{"--data", at("other"), "--port", "many"}, "\"many\""},
  };
  for (const auto& c : cases) {
    ServerProcess refused(c.arguments, at("refused"));
    EXPECT_EQ(refused.wait(), 1) << c.expected;
    EXPECT_NE(refused.log().find(c.expected), std::string::npos) << refused.log();
  }
}

TEST_F(ServerTest, HoldsBackTranscodersThatPrintWithoutEndAndKeepsABoundedLog) {
  const struct {
    const char* name;
    std::size_t kept;  // at most, of what comes through in half a second: up to 1.5 MB
  } cases[] = {{"floods", 256 << 10}, {"prints_an_endless_line", 64 << 10}};
  int id = 0;
  for (const auto& c : cases) {
    add(c.name);
    server->request("POST", "/api/streams/" + std::to_string(++id) + "/start");
    ASSERT_TRUE(eventually_has(id, R"("status":"running")")) << c.name;
    std::this_thread::sleep_for(500ms);
    server->request("POST", "/api/streams/" + std::to_string(id) + "/stop");
    EXPECT_TRUE(eventually_has(id, R"("status":"stopped")")) << c.name;
    const std::string log = get(id, "/log");
    EXPECT_LE(log.size() - log.find("\r\n\r\n"), c.kept + 2048) << c.name;
    EXPECT_GE(log.size() - log.find("\r\n\r\n"), 60u << 10) << c.name;
  }
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
  EXPECT_TRUE(eventually_has(0, R"("status":"running")"));
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
  EXPECT_TRUE(eventually_has(1, R"("status":"stopped")")) << "the status holds in memory";
  EXPECT_EQ(saved_status(1), "running") << "and the file is whole, as it was saved last";
  EXPECT_TRUE(eventually_has(0, R"("status":"running")"));
  fs::remove(data + "/filler");
  server->request("POST", "/api/streams/1/start");
  EXPECT_TRUE(eventually_has(1, R"("status":"running")"));
  server->request("POST", "/api/streams/1/stop");
  EXPECT_TRUE(eventually([&] { return saved_status(1) == "stopped"; }, 10s));
}

TEST(DemoTest, TheDemoStreamPlaysInTwoRenditions) {
  const test::TemporaryDirectory directory;
  fs::create_directories(directory.path() / "data/streams");
  fs::copy_file(WEIR_TEST_DATA "/../../../scripts/demo_stream.json", directory.path() / "data/streams/0.conf");
  ServerProcess server({"--data", directory.path() / "data", "--port", "0", "--hardware", "nvenc,qsv"},
                       directory.path() / "log");
  ASSERT_TRUE(server.is_ready()) << server.log();
  EXPECT_NE(server.request("GET", "/api/version").find("+nvenc.qsv\"}"), std::string::npos);
  const auto playlist = [&](const std::string& name) { return server.request("GET", "/0/" + name); };
  ASSERT_TRUE(eventually([&] { return playlist("index.m3u8").starts_with("HTTP/1.1 200"); }))
      << server.request("GET", "/api/streams/0/log");
  EXPECT_NE(playlist("index.m3u8").find("RESOLUTION=1280x720\nplaylist_0.m3u8"), std::string::npos);
  EXPECT_NE(playlist("index.m3u8").find("RESOLUTION=640x360\nplaylist_1.m3u8"), std::string::npos);
  const std::string variant = playlist("playlist_1.m3u8");
  const std::size_t segment = variant.find("playlist_1_");
  ASSERT_NE(segment, std::string::npos) << variant;
  const std::string media = playlist(variant.substr(segment, variant.find('\n', segment) - segment));
  EXPECT_TRUE(media.starts_with("HTTP/1.1 200"));
  EXPECT_EQ(media[media.find("\r\n\r\n") + 4], 'G');  // the sync byte of an MPEG transport stream
}

}  // namespace
}  // namespace weir
