#include <array>
#include <cstdlib>

#include "tests/integration/server_fixture.h"
#include "tests/support/transport_packets.h"

namespace weir::test {
namespace {

namespace fs = std::filesystem;

/// A client that writes what it receives to a file, in the background until the response ends.
class Viewer {
 public:
  Viewer(const ServerProcess& server, const std::string& target, fs::path file) : file_(std::move(file)) {
    const std::string command =
        fmt::format("curl -sN -m 100 -o '{}' 'http://127.0.0.1:{}{}' &", file_.string(), server.port(), target);
    EXPECT_EQ(std::system(command.c_str()), 0);
  }

  std::uintmax_t size() const {
    std::error_code missing;
    const std::uintmax_t size = fs::file_size(file_, missing);
    return missing ? 0 : size;
  }
  /// Waits until so many bytes more have come.
  bool receives(std::uintmax_t bytes) const {
    return eventually([this, end = size() + bytes] { return size() > end; });
  }
  std::string received() const { return read_file(file_, 64 << 20); }

 private:
  fs::path file_;
};

/// Whole packets only: a response may end anywhere.
std::vector<TsPacket> whole_packets(std::string bytes) {
  bytes.resize(bytes.size() - bytes.size() % TsPacket::size);
  return packets_of(bytes);
}

TEST(HttpOutputTest, ViewersOfATransportStreamSeeOneStreamWhateverHappensToTheTranscoder) {
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
  const Viewer first(server, "/stream/0/live.ts", directory.path() / "first.ts");
  const Viewer radio(server, "/stream/0/live.aac", directory.path() / "radio.aac");
  ASSERT_TRUE(first.receives(100'000));
  const Viewer second(server, "/stream/0/live.ts", directory.path() / "second.ts");
  ASSERT_TRUE(second.receives(100'000));
  const std::vector<pid_t> transcoders = server.transcoders();
  ASSERT_EQ(transcoders.size(), 1u);
  ::kill(transcoders[0], SIGKILL);
  ASSERT_TRUE(eventually([&] { return server.transcoders() != transcoders && !server.transcoders().empty(); }));
  ASSERT_TRUE(first.receives(100'000));
  ASSERT_TRUE(second.receives(1'000));
  EXPECT_TRUE(radio.receives(10'000));
  const std::string record = server.request("GET", "/api/streams/0");
  EXPECT_NE(record.find(R"("clients":[{"addr":"127.0.0.1","duration":)"), std::string::npos) << record;
  server.request("POST", "/api/streams/0/stop");
  EXPECT_TRUE(eventually([&] { return server.request("GET", "/stream/0/live.ts").starts_with("HTTP/1.1 404"); }));

  for (const Viewer* viewer : {&first, &second}) {
    const std::vector<TsPacket> packets = whole_packets(viewer->received());
    EXPECT_EQ(packets[0].pid(), 0);
    EXPECT_FALSE(packets[1].is_random_access());
    EXPECT_TRUE(packets[2].is_random_access());
    EXPECT_EQ(counter_errors(packets), 0);
    EXPECT_EQ(std::ranges::count_if(packets, is_discontinuous), 2) << "one of video, one of audio";
  }
}

}  // namespace
}  // namespace weir::test
