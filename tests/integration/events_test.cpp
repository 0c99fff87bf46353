// Events of a running server as curl receives them.

#include "tests/integration/server_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

class EventsTest : public test::ServerFixture {
 protected:
  /// Subscribes for a second. Returns the head and the events.
  std::string listen(const std::string& query, const std::string& header, const std::function<void()>& meanwhile) {
    const std::string command = fmt::format("curl -sNi -m 1 {} 'http://127.0.0.1:{}/api/events{}'",
                                            header.empty() ? "" : "-H '" + header + "'", server->port(), query);
    const std::unique_ptr<FILE, int (*)(FILE*)> events(::popen(command.c_str(), "r"), ::pclose);
    std::string text;
    std::array<char, 1 << 16> chunk;
    bool begun = false;
    while (std::fgets(chunk.data(), chunk.size(), events.get())) {
      text += chunk.data();
      if (!std::exchange(begun, begun || text.find("retry:") != std::string::npos) && begun) meanwhile();
    }
    return text;
  }
};

TEST_F(EventsTest, ASubscriberSeesAStartAsItHappensAndWhatItMissedAfterwards) {
  add("goes_on");
  const std::string first = listen("?streams=1", "", [this] { server->request("POST", "/api/streams/1/start"); });
  EXPECT_NE(first.find("\r\nContent-Type: text/event-stream"), std::string::npos) << first;
  const std::size_t starting = first.find("\"status\":\"starting\"}");
  const std::size_t running = first.find("\"kind\":\"running\"");
  EXPECT_LT(starting, running) << first;
  EXPECT_LT(running, first.size()) << first;
  EXPECT_EQ(first.find("\"stream\":0"), std::string::npos) << first;
  std::smatch id;
  ASSERT_TRUE(std::regex_search(first, id, std::regex("retry: 2000\nid: (\\d+)\n"))) << first;
  const std::string again = listen("", "Last-Event-ID: " + id[1].str(), [] {});
  EXPECT_NE(again.find("\"kind\":\"running\""), std::string::npos) << again;
  EXPECT_EQ(again.find("event: resync"), std::string::npos) << again;
  EXPECT_TRUE(server->request("GET", "/api/events?streams=1,x").starts_with("HTTP/1.1 400"));
}

}  // namespace
}  // namespace weir
