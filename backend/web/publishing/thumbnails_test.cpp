#include "backend/web/publishing/thumbnails.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "backend/web/server_stream_manager.h"
#include "tests/support/fake_siblings.h"

namespace weir {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// With a program in the transcoder's place that notes its calls, and whether two run at once.
class ThumbnailsTest : public testing::Test {
 protected:
  ThumbnailsTest() {
    thumbnails_.add_to(router_);
    Config::FFMPEG = world_.directory.path() / "ffmpeg";
    std::ofstream(Config::FFMPEG) << "#!/bin/sh\ncd " << world_.directory.path().string()
                                  << "\necho x >> calls\nmkdir busy || echo x >> overlaps\nsleep 0.02\n"
                                     "printf '\\377\\330jpeg'; rmdir busy\n";
    fs::permissions(Config::FFMPEG, fs::perms::owner_all);
  }
  ~ThumbnailsTest() override { Config::FFMPEG = "ffmpeg"; }

  void add(const std::string& protocol, const char* status) {
    ASSERT_TRUE(manager_.add_stream({{"input", Value::object()},
                                     {"output", {{"0", {{"protocol", protocol}, {"playlist_name", "x.m3u8"}}}}},
                                     {"status", status}}))
        << manager_.get_error_msg();
  }
  void publish(long long id, long long segment) {
    if (!windows_.find(id))
      first_[id] = windows_.begin_cycle(id, {.segment_time = 4, .list_size = 3, .renditions = {{}}})[0];
    segment += first_[id];
    MediaPlaylist playlist{.target_duration = 4, .segments = {{.number = segment, .duration = 4}}};
    const fs::path directory = fs::path(Config::HLS_DIRECTORY) / std::to_string(id);
    std::ofstream(directory / segment_name(0, segment)) << "segment";
    std::ofstream(directory / media_playlist_name(0)) << format_media_playlist(playlist);
  }
  int count(const char* file) const {
    std::ifstream lines(world_.directory.path() / file);
    return static_cast<int>(std::count(std::istreambuf_iterator<char>(lines), {}, '\n'));
  }

  struct Exchange {
    Response response;
    Task task;
  };
  static Async<> route(const Router& router, Request request, Exchange& exchange) {
    exchange.response = co_await router.route(std::move(request));
  }
  std::unique_ptr<Exchange> begin(long long id, std::string tag = {}) {
    auto exchange = std::make_unique<Exchange>();
    Request request;
    request.method = "GET";
    request.target = *parse_target("/api/streams/" + std::to_string(id) + "/thumbnail.jpg");
    request.if_none_match = std::move(tag);
    request.identity.role = Role::viewer;
    exchange->task = spawn("request", route(router_, std::move(request), *exchange));
    return exchange;
  }
  Response ask(long long id, std::string tag = {}) {
    const auto exchange = begin(id, std::move(tag));
    EXPECT_TRUE(world_.loop.run_until([&] { return exchange->task.dead(); }, 10s));
    return std::move(exchange->response);
  }

  test::FakeSiblings world_;
  ServerStreamManager manager_;
  HlsWindows windows_;
  std::map<long long, long long> first_;  ///< number of the first segment, by stream
  Thumbnails thumbnails_{manager_, windows_};
  Router router_;
};

TEST_F(ThumbnailsTest, ManyAtOnceAreMadeOneAfterTheOther) {
  std::vector<std::unique_ptr<Exchange>> exchanges;
  for (long long id = 0; id < 5; ++id) {
    add("hls", "running");
    publish(id, 0);
  }
  for (long long i = 0; i < 20; ++i) exchanges.push_back(begin(i % 5));
  for (const auto& exchange : exchanges) {
    EXPECT_TRUE(world_.loop.run_until([&] { return exchange->task.dead(); }, 10s));
    EXPECT_EQ(exchange->response.status, 200);
    EXPECT_EQ(exchange->response.body, "\xFF\xD8jpeg");
  }
  EXPECT_EQ(count("calls"), 5);
  EXPECT_EQ(count("overlaps"), 0);
}

TEST_F(ThumbnailsTest, APictureIsShownForTenSecondsAndMadeAgainOfANewSegment) {
  add("hls", "running");
  publish(0, 0);
  const std::string tag = ask(0).headers[0].second;
  world_.loop.advance(9s);
  publish(0, 1);
  EXPECT_EQ(ask(0, tag).status, 304);
  EXPECT_EQ(count("calls"), 1);
  world_.loop.advance(2s);
  ask(0);
  EXPECT_EQ(count("calls"), 2);
  world_.loop.advance(11s);
  ask(0);
  EXPECT_EQ(count("calls"), 2) << "the same segment";
  world_.loop.advance(61s);
  thumbnails_.forget_unused();
  ask(0);
  EXPECT_EQ(count("calls"), 3);
}

TEST_F(ThumbnailsTest, WhereThereIsNoPictureTheReasonIsSaid) {
  add("udp", "running");
  add("hls", "stopped");
  for (int i = 0; i < 2; ++i) add("hls", "running");
  publish(3, 0);
  std::ofstream(Config::FFMPEG) << "#!/bin/sh\necho \"Stream map '0:v:0' matches no streams.\" >&2; exit 1\n";
  for (const auto& [id, reason] :
       {std::pair(0, "no HLS output"), {1, "not running"}, {2, "no segment yet"}, {3, "no video"}})
    EXPECT_NE(ask(id).body.find(reason), std::string::npos) << reason;
}

}  // namespace
}  // namespace weir
