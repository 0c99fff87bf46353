#include "backend/web/publishing/http_outputs.h"

#include <gtest/gtest.h>

#include <boost/asio/local/stream_protocol.hpp>

#include "backend/collaborators/http_output.h"
#include "backend/services/publishing/announced_command.h"
#include "backend/web/server_stream_manager.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using Local = boost::asio::local::stream_protocol;

/// An MP3 frame that says `mark`.
std::string frame(char mark) { return "\xff\xfb\x90" + std::string(414, mark); }

/// Keeps what one viewer receives.
struct Received {
  std::string bytes;
  bool ended = false;
};
Async<> view(std::unique_ptr<LiveBody> body, std::shared_ptr<Received> received) {
  while (!received->ended) {
    const std::vector<LiveSlice> slices = co_await body->next();
    for (const LiveSlice& slice : slices) received->bytes += slice.bytes;
    received->ended = slices.empty();
  }
}

/// Stream 0 with the outputs a.mp3 and b.ts; its transcoder is this process.
class HttpOutputsTest : public testing::Test {
 protected:
  HttpOutputsTest() {
    outputs_.add_to(router_);
    siblings().ffmpeg =
        announce_launches(std::move(siblings().ffmpeg), [this](const JsonConf& conf) { outputs_.prepare_run(conf); });
    world_.on_launch = [this](test::ChildScript& script) { script.pid = transcoder_; };
    manager_.add_stream(Value::parse(R"({"label": "Radio", "input.0.url": "udp://a", "status": "stopped",
        "output": {"0": {"protocol": "http", "filename": "a.mp3"}, "1": {"protocol": "http", "filename": "b.ts"}}})"));
  }
  ~HttpOutputsTest() override {
    world_.loop.run(manager_.stop_stream(0));
    world_.loop.settle();
    for (const Task& task : tasks_) task.kill();
    world_.loop.settle();
  }

  void launch(const std::string& first = {}) {
    world_.loop.run(manager_.start_stream(0));
    settle(10ms);
    connect();
    send(first);
  }
  void connect() { sender_.emplace(Local::endpoint(get_http_socket(0, 0))); }
  void send(const std::string& bytes) {
    *sender_ << bytes << std::flush;
    settle();
  }
  // The poller looks each 20 ms, and pieces are passed on each 40 ms.
  void settle(std::chrono::milliseconds time = 200ms) { world_.loop.advance(time); }
  Response ask(const std::string& target, const std::string& method = "GET") {
    Request request;
    request.method = method;
    request.target = *parse_target(target);
    request.client_address = "10.0.0.5";
    request.client_port = std::to_string(++last_port_);
    return world_.loop.run(router_.route(std::move(request)));
  }
  std::shared_ptr<Received> join() {
    auto received = std::make_shared<Received>();
    Response response = ask("/stream/0/a.mp3");
    EXPECT_EQ(response.status, 200);
    if (response.live) tasks_.push_back(spawn("viewer", view(std::move(response.live), received)));
    world_.loop.settle();
    return received;
  }
  std::size_t clients() { return manager_.streams.at(0)->get_client_info().at("0").at("clients").size(); }

  test::FakeSiblings world_;
  ServerStreamManager manager_;
  HttpOutputs outputs_{manager_, std::make_shared<Viewers>(ViewerLimits{})};
  Router router_;
  std::vector<Task> tasks_;
  int last_port_ = 1000;
  pid_t transcoder_ = ::getpgrp();
  std::optional<Local::iostream> sender_;  ///< the transcoder's end of a.mp3
};

TEST_F(HttpOutputsTest, AnswersByTheStateOfTheStream) {
  launch();
  EXPECT_EQ(ask("/stream/0/a.mp3").status, 503);
  EXPECT_EQ(ask("/stream/0/none.mp3").status, 404);
  send(frame('1'));
  EXPECT_EQ(ask("/stream/0/a.mp3", "HEAD").content_type, "audio/mpeg");
  EXPECT_EQ(clients(), 0u);
  EXPECT_EQ(ask("/stream/0/b.ts").status, 503);
  EXPECT_EQ(std::filesystem::status(Config::MMCB_DIRECTORY + "/0").permissions(), std::filesystem::perms::owner_all);
}

TEST_F(HttpOutputsTest, ViewersBeginAtTheLatestFramesAndStayOverARestart) {
  launch(frame('1'));
  const auto early = join();
  send(frame('2'));
  const auto late = join();
  send(frame('3') + frame('4').substr(0, 100));
  EXPECT_EQ(early->bytes, frame('1') + frame('2') + frame('3'));
  EXPECT_EQ(late->bytes, frame('2') + frame('3'));
  tasks_[0].kill();
  settle();
  EXPECT_EQ(clients(), 1u);
  sender_.reset();
  world_.child().exit(1);
  settle(1s);
  EXPECT_EQ(clients(), 0u);
  const auto newcomer = join();
  settle(3s);
  EXPECT_EQ(clients(), 2u);
  connect();
  send(frame('5'));
  EXPECT_EQ(late->bytes, frame('2') + frame('3') + frame('5'));
  EXPECT_EQ(newcomer->bytes, frame('5')) << "what is over is not shown";
}

TEST_F(HttpOutputsTest, ResponsesEndWithTheirStreamOrAfterTheHold) {
  launch(frame('1'));
  const auto viewer = join();
  world_.command_can_be_made = false;
  sender_.reset();
  world_.child().exit(1);
  settle(29s);
  EXPECT_FALSE(viewer->ended);
  settle(2s);
  EXPECT_TRUE(viewer->ended);

  world_.command_can_be_made = true;
  settle(4s);
  connect();
  send(frame('2'));
  const auto second = join();
  world_.loop.run(manager_.stop_stream(0));
  settle(2s);
  EXPECT_TRUE(second->ended);
  EXPECT_EQ(ask("/stream/0/a.mp3").status, 404);
}

TEST_F(HttpOutputsTest, AnOutputThatIsRemovedEndsWithTheNextRun) {
  launch(frame('1'));
  const auto viewer = join();
  ASSERT_TRUE(manager_.save_stream(0, Value::parse(R"({"output": {"0": {"protocol": "http", "filename": "c.mp3"}}})")));
  EXPECT_EQ(ask("/stream/0/a.mp3", "HEAD").status, 200);
  EXPECT_EQ(ask("/stream/0/c.mp3").status, 503);
  world_.loop.run(manager_.restart_stream(0));
  settle(1s);
  EXPECT_TRUE(viewer->ended);
  EXPECT_EQ(ask("/stream/0/a.mp3").status, 404);
}

TEST_F(HttpOutputsTest, OnlyTheTranscodersProcessGroupMaySend) {
  transcoder_ = 1;
  launch(frame('1'));
  EXPECT_EQ(ask("/stream/0/a.mp3").status, 503);
}

TEST_F(HttpOutputsTest, DropsViewersWhoDoNotKeepUp) {
  launch(frame('1'));
  const Response response = ask("/stream/0/a.mp3");
  EXPECT_EQ(world_.loop.run(response.live->next()).size(), 1u);
  for (int second = 0; second < 12; ++second) {
    send(frame('2'));
    settle(800ms);
  }
  EXPECT_EQ(world_.loop.run(response.live->next()).size(), 0u);
}

}  // namespace
}  // namespace weir
