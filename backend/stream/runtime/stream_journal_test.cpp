#include <signal.h>

#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using test::progress_line;
using Words = std::vector<std::string>;

class StreamJournalTest : public test::StreamFixture {
 protected:
  void advance(std::chrono::milliseconds time) { world.loop.advance(time); }
  void fail_launches() {
    world.on_launch = [](test::ChildScript&) { throw std::system_error(ENOENT, std::generic_category(), "ffmpeg"); };
  }
};

TEST_F(StreamJournalTest, TellsTheCauseOfEachEnd) {
  const auto refused = "\x1b[48;5;0m\x1b[38;5;196mrtmp://u:secret@h/a: Connection refused\n\x1b[0m";
  const auto end_after = [&](const char* name, const std::function<void()>& act, const Words& expected) {
    run_to_first_progress();
    advance(12s);
    world.told.clear();
    act();
    EXPECT_EQ(world.told, expected) << name;
    world.on_launch = {};
    stop();
    advance(10s);
  };
  const auto exit = [&](int status) {
    world.child().exit(status);
    world.loop.settle();
  };
  end_after("exit", [&] { exit(0); }, {"ended by itself with code 0 after 12 s on the air; next launch in 3.0 s"});
  end_after("error", [&] { say(refused), exit(1); },
            {"ended by itself with code 1 after 12 s on the air: rtmp://u:***@h/a: Connection refused; next launch in "
             "3.0 s"});
  end_after("signal", [&] { exit(-11); },
            {"ended by signal 11 (Segmentation fault) after 12 s on the air; next launch in 3.0 s"});
  end_after("not launched", [&] { fail_launches(), exit(1), world.told.clear(), advance(3s); },
            {"not launched: ffmpeg: No such file or directory; next launch in 3.0 s"});
  end_after("restart", [&] { world.loop.run(stream->restart(0, {.by = "10.0.0.1"})), world.loop.settle(); },
            {"restarted by 10.0.0.1 after 12 s on the air"});
  end_after("stop", [&] { world.loop.run(stream->stop("10.0.0.1")), world.loop.settle(); },
            {"stopped by 10.0.0.1 after 12 s on the air", "stopped by 10.0.0.1 after 12 s on the air"});
  end_after("server end", [&] { stream->thread.kill(), world.loop.settle(); },
            {"ended with the server after 12 s on the air"});
  end_after("directory", [&] { std::filesystem::remove_all(get_hls_path(7, "")), world.loop.settle(); },
            {"restarted because its HLS directory was removed after 12 s on the air: " +
             join_path(Config::HLS_DIRECTORY, "7")});
  end_after("stall", [&] { world.child().stderr_write.reset(), advance(6min), world.told.resize(1); },
            {"restarted because its media time stood still after 6 min 0 s on the air: URL #0 udp://a is timeout"});
  for (const auto& child : world.children) {
    EXPECT_TRUE(child->reaped) << child->pid;
    EXPECT_EQ(child->signals, std::vector<int>{SIGKILL}) << child->pid;
  }
}

TEST_F(StreamJournalTest, TheStrongerOfTwoRequestsIsTheCauseAndOfEqualOnesTheFirst) {
  run_to_first_progress();
  const auto ask_all = [](std::shared_ptr<Stream> target) -> Async<> {
    Reason first{.cause = Cause::speed};
    co_await target->restart(0, std::move(first));
    Reason second{.by = "b"};
    co_await target->restart(1, std::move(second));
  };
  world.told.clear();
  world.loop.run(ask_all(stream));
  world.loop.settle();
  EXPECT_EQ(world.told, Words{"restarted because of its speed after 0.0 s"});
  advance(10ms);
  world.told.clear();
  const auto stop_too = [](std::shared_ptr<Stream> target) -> Async<> {
    co_await target->restart();
    co_await target->stop("c");
  };
  world.loop.run(stop_too(stream));
  world.loop.settle();
  EXPECT_TRUE(world.told.back().starts_with("stopped by c")) << world.told.back();
}

TEST_F(StreamJournalTest, WhatEndsBeforeItsLaunchIsDueIsNoCycle) {
  run_to_first_progress();
  world.child().exit(1);
  advance(1s);
  world.told.clear();
  world.loop.run(stream->restart(1, {.by = "10.0.0.1"}));
  world.loop.settle();
  EXPECT_EQ(world.told, Words{"restarted by 10.0.0.1 before its launch was due"});
  EXPECT_EQ(stream->cycle.number, 1);
  advance(10ms);
  EXPECT_EQ(stream->cycle.number, 2);
  EXPECT_EQ(stream->last_end->exit_status, 1);
}

TEST(ErrorLineTest, FindsTheErrorThatFFmpegColoured) {
  const std::string grey = "\x1b[0m\x1b[48;5;0m\x1b[38;5;250m[rtmp @ 0x5574d47b6100] ";
  const std::string red = "\x1b[0m\x1b[48;5;0m\x1b[38;5;196m";
  const std::string fatal = "\x1b[48;5;0m\x1b[38;5;208m";
  const std::pair<Words, std::string> cases[] = {
      {{grey + red + "Cannot open connection\n"}, "Cannot open connection"},
      {{red + "a: Connection refused\n", "Conversion failed!\n", "\x1b[38;5;226mPast duration too large\n"},
       "a: Connection refused"},
      {{red + "cause\n", red + "Error initializing output stream 0:0 -- \n"}, "cause"},
      {{"20:04:08.130346/SRT:RcvQ:w1!W:SRT.cn: processAsyncConnectRequest: REJECT reported from HS processing: "
        "Incorrect passphrase - not processing further\n",
        red + "Connection to srt://h:1 failed: Input/output error\n", red + "srt://h:1: Input/output error\n"},
       "Incorrect passphrase"},
      {{red + "Failed to resolve hostname h: Name or service not known\n", red + "Cannot open connection tcp://h:1\n",
        red + "rtmp://h/x: Input/output error\n"},
       "Failed to resolve hostname h: Name or service not known"},
      {{red + "old\n", "\n", "\n", "\n", red + "tcp://h:1: Input/output error\n"}, "tcp://h:1: Input/output error"},
      {{fatal + "title \x1b[31mred\x07\x01 end\n"}, "title red end"},
      {{red + std::string(100'000, 'x')}, std::string(ErrorLine::max_bytes, 'x')},
      {{"plain error\n", "\x1b[38;5;19"}, ""},
  };
  for (const auto& [lines, expected] : cases) {
    ErrorLine error;
    for (const std::string& line : lines) error.look(line);
    EXPECT_EQ(error.text(), expected);
  }
  EXPECT_EQ(last_line("first\nffmpeg: error while loading shared libraries: x\r\n\n\x1b[0m\n"),
            "ffmpeg: error while loading shared libraries: x");
  EXPECT_EQ(last_line("\n\r\n"), "");
}

}  // namespace
}  // namespace weir
