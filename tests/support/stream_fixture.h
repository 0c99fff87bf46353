#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "backend/stream/runtime/stream.h"
#include "tests/support/fake_siblings.h"

namespace weir::test {

/// One stream with three inputs and an HLS output, id 7, labelled Lobby, whose transcoder the test scripts.
class StreamFixture : public testing::Test {
 protected:
  StreamFixture() {
    conf = std::make_shared<StreamConfig>(join_path(Config::STREAM_DIRECTORY, "7.conf"));
    conf->load_json_conf(Value::parse(R"({"id":7,"label":"Lobby","min_speed":"","max_speed":"abc","max_sys_mem":"",
        "max_gpu_mem":"","input":{"0":{"url":"udp://a"},"1":{"url":"udp://b"},"2":{"url":"udp://c"}},
        "output":{"0":{"protocol":"hls","playlist_name":"index.m3u8"}}})"));
    stream = std::make_shared<Stream>(7, conf);
  }

  std::string status() const { return to_text(stream->get_status()); }
  /// Starts the stream; its transcoder is launched when time moves.
  void start() { ASSERT_TRUE(world.loop.run(stream->start())); }
  /// Starts it and lets its transcoder print a first progress line.
  void run_to_first_progress() {
    start();
    world.loop.advance(10ms);
    say(progress_line("00:00:01.00"));
  }
  void restart(int input) { world.loop.run(stream->restart(input)); }
  void stop() {
    world.loop.run(stream->stop());
    world.loop.settle();
  }
  /// The transcoder prints, and the stream reads.
  void say(std::string_view text) {
    world.child().print(text);
    world.loop.settle();
  }
  bool logged(std::string_view text) const {
    return std::ranges::any_of(world.log_lines,
                               [&](const std::string& line) { return line.find(text) != std::string::npos; });
  }
  std::size_t launches() const { return world.children.size(); }

  FakeSiblings world;
  std::shared_ptr<StreamConfig> conf;
  std::shared_ptr<Stream> stream;
};

}  // namespace weir::test
