#include <cstdlib>

#include "tests/integration/server_fixture.h"
#include "tests/support/transport_packets.h"

namespace weir::test {
namespace {

namespace fs = std::filesystem;

/// A client that writes what it receives to a file, in the background until the response ends.
struct Viewer {
  Viewer(const ServerProcess& server, const std::string& target, fs::path output) : file(std::move(output)) {
    const std::string command =
        fmt::format("curl -sN -m 100 -o '{}' 'http://127.0.0.1:{}{}' &", file.string(), server.port(), target);
    EXPECT_EQ(std::system(command.c_str()), 0);
  }

  std::string received() const { return fs::exists(file) ? read_file(file, 64 << 20) : ""; }
  /// Waits until so many bytes more have come.
  bool receives(std::size_t bytes) const {
    return eventually([this, end = received().size() + bytes] { return received().size() > end; });
  }

  fs::path file;
};

TEST(HttpOutputTest, AViewerOfATransportStreamSeesOneStreamWhateverHappensToTheTranscoder) {
  const TemporaryDirectory directory;
  ServerProcess server({"--data", directory.path() / "data", "--port", "0"}, directory.path() / "log");
  ASSERT_TRUE(server.is_ready()) << server.log();
  server.request("POST", "/api/streams", R"({"input.0": {"format": "lavfi", "re": true,
      "url": "testsrc2=size=128x96:rate=25[out0];sine=frequency=440:sample_rate=48000[out1]"},
      "output": {"0": {"protocol": "http", "filename": "live.ts"}, "1": {"protocol": "http", "filename": "live.aac"}}})");
  server.request("POST", "/api/streams/0/start");
  const auto answers = [&](const std::string& target) {
    return eventually([&] { return server.request("HEAD -I", target).starts_with("HTTP/1.1 200"); });
  };
  ASSERT_TRUE(answers("/stream/0/live.ts")) << server.request("GET", "/api/streams/0/log");
  ASSERT_TRUE(answers("/stream/0/live.aac"));
  const Viewer viewer(server, "/stream/0/live.ts", directory.path() / "live.ts");
  const Viewer radio(server, "/stream/0/live.aac", directory.path() / "radio.aac");
  ASSERT_TRUE(viewer.receives(100'000));
  const std::vector<pid_t> transcoders = server.transcoders();
  ASSERT_EQ(transcoders.size(), 1u);
  ::kill(transcoders[0], SIGKILL);
  ASSERT_TRUE(eventually([&] { return server.transcoders() != transcoders && !server.transcoders().empty(); }));
  ASSERT_TRUE(viewer.receives(100'000));
  EXPECT_TRUE(radio.receives(10'000));
  server.request("POST", "/api/streams/0/stop");
  EXPECT_TRUE(eventually([&] { return server.request("GET", "/stream/0/live.ts").starts_with("HTTP/1.1 404"); }));

  std::string received = viewer.received();
  received.resize(received.size() - received.size() % TsPacket::size);  // a response may end anywhere
  const std::vector<TsPacket> packets = packets_of(received);
  EXPECT_EQ(packets[0].pid(), 0);
  EXPECT_FALSE(packets[1].is_random_access());
  EXPECT_TRUE(packets[2].is_random_access());
  EXPECT_EQ(counter_errors(packets), 0);
  EXPECT_EQ(std::ranges::count_if(packets, is_discontinuous), 2) << "one of video, one of audio";
}

}  // namespace
}  // namespace weir::test
