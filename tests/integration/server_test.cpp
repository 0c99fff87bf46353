#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "backend/collaborators/value.h"
#include "tests/integration/server_process.h"
#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using test::ServerProcess;

constexpr const char* generated = R"({"label": "Generated", "input": {"0": {"url": "/dev/null"}},
    "output": {"0": {"protocol": "udp", "hostname": "127.0.0.1", "port": 9}}})";

class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    // Makes progress for ever, whatever it is told to do, and says which process it is.
    std::ofstream(transcoder_) << "#!/bin/sh\necho $$ > " << pid_file_ << "\n"
                               << "while :; do printf 'frame=1 fps=25 q=28.0 size=1kB time=00:00:01.00 "
                                  "bitrate=100.0kbits/s speed=1.0x    \\r' >&2; sleep 0.1; done\n";
    ::chmod(transcoder_.c_str(), 0700);
  }

  std::unique_ptr<ServerProcess> serve() const {
    return std::make_unique<ServerProcess>(
        std::vector<std::string>{"--data", data_, "--port", "0", "--ffmpeg", transcoder_}, log_);
  }
  std::string at(const std::string& name) const { return (directory_.path() / name).string(); }
  static bool is_running(const ServerProcess& server) {
    return server.request("GET", "/api/streams/0").find(R"("status":"running")") != std::string::npos;
  }
  pid_t transcoder_pid() const {
    pid_t pid = 0;
    std::ifstream(pid_file_) >> pid;
    return pid;
  }

  test::TemporaryDirectory directory_;
  const std::string data_ = at("data");
  const std::string log_ = at("log");
  const std::string transcoder_ = at("transcoder");
  const std::string pid_file_ = at("pid");
};

TEST_F(ServerTest, AKilledServerLeavesNoTranscoderAndTheNextOneGoesOn) {
  auto server = serve();
  ASSERT_TRUE(server->is_ready()) << server->log();
  EXPECT_TRUE(server->request("POST", "/api/streams", generated).starts_with("HTTP/1.1 201"));
  EXPECT_TRUE(server->request("POST", "/api/streams/0/start").starts_with("HTTP/1.1 200"));
  ASSERT_TRUE(eventually([&] { return is_running(*server); })) << server->request("GET", "/api/streams/0/log");
  const pid_t transcoder = transcoder_pid();
  EXPECT_TRUE(test::runs(transcoder));
  server->end(SIGKILL);
  EXPECT_TRUE(eventually([&] { return !test::runs(transcoder); }, std::chrono::seconds(1)));
  server = serve();
  ASSERT_TRUE(server->is_ready()) << server->log();
  EXPECT_TRUE(eventually([&] { return is_running(*server); })) << server->log();
  EXPECT_NE(transcoder_pid(), transcoder);
}

TEST_F(ServerTest, AServerThatEndsTakesItsTranscodersAlongAndLeavesTheFilesAsTheyWere) {
  const auto server = serve();
  ASSERT_TRUE(server->is_ready()) << server->log();
  server->request("POST", "/api/streams", generated);
  server->request("POST", "/api/streams/0/start");
  ASSERT_TRUE(eventually([&] { return is_running(*server); }));
  const pid_t transcoder = transcoder_pid();
  EXPECT_EQ(server->end(SIGTERM), 0) << server->log();
  EXPECT_FALSE(test::runs(transcoder));
  EXPECT_EQ(Value::parse(read_file(data_ + "/streams/0.conf", 1 << 20)).at("status"), "running");
  EXPECT_NE(server->log().find("Every transcoder has ended"), std::string::npos) << server->log();
}

TEST_F(ServerTest, AServerThatCannotStartSaysWhyAndEnds) {
  const auto server = serve();
  ASSERT_TRUE(server->is_ready()) << server->log();
  const std::string log = server->log();
  const std::string url = log.substr(log.find("127.0.0.1:") + 10);
  const std::string port = url.substr(0, url.find('\n'));
  std::ofstream(at("file")) << "in the way";
  const struct {
    std::vector<std::string> arguments;
    std::string expected;
  } cases[] = {
      {{"--data", data_, "--port", "0"}, "process " + std::to_string(server->pid())},
      {{"--data", at("other"), "--port", port}, "port " + port + ": Address already in use"},
      {{"--data", at("file"), "--port", "0"}, at("file")},
      {{"--data", at("other"), "--bind", "0.0.0.0"}, "authentication"},
      {{"--data", at("other"), "--port", "many"}, "\"many\""},
  };
  for (const auto& c : cases) {
    ServerProcess refused(c.arguments, at("refused"));
    EXPECT_EQ(refused.wait(), 1) << c.expected;
    EXPECT_NE(refused.log().find(c.expected), std::string::npos) << refused.log();
  }
}

TEST_F(ServerTest, TheDemoStreamPlaysInTwoRenditions) {
  fs::create_directories(data_ + "/streams");
  fs::copy_file(WEIR_TEST_DATA "/../../../scripts/demo_stream.json", data_ + "/streams/0.conf");
  ServerProcess server({"--data", data_, "--port", "0"}, log_);
  ASSERT_TRUE(server.is_ready()) << server.log();
  const auto playlist = [&](const char* name) { return server.request("GET", std::string("/0/") + name); };
  ASSERT_TRUE(eventually([&] { return playlist("index.m3u8").starts_with("HTTP/1.1 200"); }))
      << server.request("GET", "/api/streams/0/log");
  EXPECT_NE(playlist("index.m3u8").find("RESOLUTION=1280x720\nplaylist_0.m3u8"), std::string::npos);
  EXPECT_NE(playlist("index.m3u8").find("RESOLUTION=640x360\nplaylist_1.m3u8"), std::string::npos);
  const std::string variant = playlist("playlist_1.m3u8");
  const std::size_t segment = variant.find("playlist_1_");
  ASSERT_NE(segment, std::string::npos) << variant;
  const std::string media = playlist(variant.substr(segment, variant.find('\n', segment) - segment).c_str());
  EXPECT_TRUE(media.starts_with("HTTP/1.1 200"));
  EXPECT_EQ(media[media.find("\r\n\r\n") + 4], 'G');  // the sync byte of an MPEG transport stream
}

}  // namespace
}  // namespace weir
