#include <filesystem>
#include <fstream>

#include "tests/integration/server_fixture.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using test::ServerProcess;

class ServerTest : public test::ServerFixture {};

TEST_F(ServerTest, AKilledServerLeavesNoTranscoderAndTheNextOneGoesOn) {
  const pid_t before = first_pid;
  server->end(SIGKILL);
  EXPECT_TRUE(eventually([&] { return !test::runs(before); }, std::chrono::seconds(1)));
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
  const struct {
    std::vector<std::string> arguments;
    std::string expected;
  } cases[] = {
      {{"--data", data, "--port", "0"}, "process " + std::to_string(server->pid())},
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

TEST(DemoTest, TheDemoStreamPlaysInTwoRenditions) {
  const test::TemporaryDirectory directory;
  fs::create_directories(directory.path() / "data/streams");
  fs::copy_file(WEIR_TEST_DATA "/../../../scripts/demo_stream.json", directory.path() / "data/streams/0.conf");
  ServerProcess server({"--data", directory.path() / "data", "--port", "0"}, directory.path() / "log");
  ASSERT_TRUE(server.is_ready()) << server.log();
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
