#include "backend/services/transcoder/report/output_states.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "backend/collaborators/journal.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

const std::string error_colour = "\x1b[0m\x1b[48;5;0m\x1b[38;5;196m";

// Lines as FFmpeg 5.1 prints them.
std::string line(std::string_view name, std::uint64_t address, std::string_view text, bool is_error) {
  return fmt::format("\x1b[48;5;0m\x1b[38;5;213m[{} @ {:#x}] {}{}\n", name, address,
                     is_error ? error_colour : "\x1b[0m", text);
}
std::string queue_error(std::uint64_t queue, std::string_view text) { return line("fifo", queue, text, true); }
std::string queue_info(std::uint64_t queue, std::string_view text) { return line("fifo", queue, text, false); }
std::string refusal(std::string_view address) {
  return line("tcp", 0x7f2558001000,
              fmt::format("Connection to tcp://{}?timeout=0 failed: Connection refused", address), true);
}

class Notices : public JournalReader {
 public:
  void read(const JournalEntry& entry) override { texts.push_back(entry.text); }
  std::vector<std::string> texts;
};

class OutputStatesTest : public testing::Test {
 protected:
  OutputStatesTest() {
    JsonConf conf;
    conf.load_json_conf(Value{{"id", 7}, {"label", "News"}});
    states_.begin(conf, {{0, "hls", "/data/hls/7/playlist_0.m3u8"},
                         {0, "hls", "/data/hls/7/playlist_1.m3u8"},
                         {1, "rtmp", "rtmp://u:secret@a:1935/live/x"},
                         {2, "rtsp", "rtsp://b:554/y"},
                         {3, "udp", "udp://c:1234?pkt_size=1316"},
                         {4, "file", "/rec/x.mp4"}});
    progress();
  }
  void progress() { states_.watch("frame=1", true); }
  void wait(std::chrono::milliseconds time) {
    loop_.advance(time);
    progress();
  }
  std::string state(std::size_t output) const { return Value::parse(states_.json())[output]["state"]; }
  std::string states() const {
    std::string all;
    for (std::size_t i = 0; i < 5; ++i) all += (i ? " " : "") + state(i);
    return all;
  }
  Value error(std::size_t output) const { return Value::parse(states_.json())[output].value("error", Value()); }

  test::TestLoop loop_;
  Notices notices_;
  OutputStates states_;
};

TEST_F(OutputStatesTest, FollowAReceiverThatGoesAwayAndComesBack) {
  EXPECT_EQ(states(), "sending sending sending unknown sending");
  states_.watch(queue_error(0x30, "Error opening rtmp://u:secret@a:1935/live/x: Connection refused"), false);
  states_.watch(queue_info(0x30, "Recovery failed: Connection refused"), false);
  EXPECT_EQ(states(), "sending retrying sending unknown sending");
  EXPECT_EQ(error(1), "Connection refused");
  EXPECT_EQ(states_.json().find("secret"), std::string::npos);

  states_.watch(queue_info(0x30, "Recovery successful"), false);
  wait(std::chrono::milliseconds(3900));
  EXPECT_EQ(state(1), "retrying");
  wait(std::chrono::milliseconds(200));
  EXPECT_EQ(state(1), "sending");
  EXPECT_EQ(error(1), Value());
  wait(std::chrono::minutes(1));
  EXPECT_EQ(notices_.texts, (std::vector<std::string>{
                                "output #1 rtmp://u:***@a:1935/live/*** is retrying: Connection refused",
                                "output #1 rtmp://u:***@a:1935/live/*** is sending",
                            }));
}

TEST_F(OutputStatesTest, AReceiverThatAcceptsAndHangsUpStaysRetryingAndIsToldOnce) {
  for (int i = 0; i < 40; ++i) {
    states_.watch(queue_error(0x30, "Error opening rtmp://u:secret@a:1935/live/x: Input/output error"), false);
    states_.watch(queue_info(0x30, "Recovery successful"), false);
    wait(std::chrono::seconds(3));
    EXPECT_EQ(state(1), "retrying");
  }
  EXPECT_EQ(notices_.texts.size(), 1U);
}

TEST_F(OutputStatesTest, FindTheOutputOfAFailureThatNamesNone) {
  states_.watch(refusal("b:554"), false);
  states_.watch(queue_info(0x40, "Recovery failed: Connection refused"), false);
  EXPECT_EQ(states(), "sending sending retrying unknown sending") << "by the refused address";
  states_.watch(queue_info(0x50, "Recovery failed: Broken pipe"), false);
  EXPECT_EQ(states(), "sending sending retrying retrying sending") << "by the order of the queues";
  states_.watch(queue_info(0x30, "Recovery failed: Broken pipe"), false);
  EXPECT_EQ(state(1), "retrying") << "as the last one that is left";
}

TEST_F(OutputStatesTest, SeveralThatAFailureMayBelongToAreUnknownUntilOneIsNamed) {
  states_.watch(queue_info(0x30, "Recovery failed: Connection reset by peer"), false);
  EXPECT_EQ(states(), "sending unknown unknown unknown sending");
  EXPECT_EQ(error(1), "Connection reset by peer (this output or another one)");
  states_.watch(queue_error(0x30, "Error opening rtmp://u:secret@a:1935/live/x: Connection refused"), false);
  EXPECT_EQ(states(), "sending retrying sending unknown sending");
}

TEST_F(OutputStatesTest, AReasonThatFFmpegToldBeforeIsShown) {
  JsonConf conf;
  states_.begin(conf, {{0, "srt", "srt://a:1?mode=caller"}, {1, "rtmp", "rtmp://no.such/x"}});
  progress();
  states_.watch("20:04:08.1/SRT:RcvQ:w1!W:SRT.cn: x: REJECT reported from HS processing: Incorrect passphrase - no\n",
                false);
  states_.watch(queue_error(0x10, "Error opening srt://a:1?mode=caller: Input/output error"), false);
  states_.watch(line("tcp", 0x1, "Failed to resolve hostname no.such: Name or service not known", true), false);
  states_.watch(queue_error(0x20, "Error opening rtmp://no.such/x: Input/output error"), false);
  EXPECT_EQ(error(0), "Incorrect passphrase");
  EXPECT_EQ(error(1), "Failed to resolve hostname no.such: Name or service not known");
}

TEST_F(OutputStatesTest, AFullDiskIsTheHlsOutputsAndAnOutputThatIsGivenUpHasFailed) {
  states_.watch(line("tee", 0x9, "Slave muxer #5 failed: No space left on device, continuing with 5/6 slaves.", true),
                false);
  EXPECT_EQ(state(4), "failed");
  EXPECT_EQ(error(4), "No space left on device");
  states_.watch(queue_info(0x10, "Recovery failed: No space left on device"), false);
  EXPECT_EQ(state(0), "unknown");
  EXPECT_EQ(state(1), "sending");
}

TEST_F(OutputStatesTest, NoTextOfASourceOrReceiverIsTakenForAState) {
  states_.watch(queue_error(0x30, "Error opening rtmp://u:secret@a:1935/live/x: Connection refused"), false);
  const std::string before = states_.json();
  for (const std::string& hostile :
       {std::string("[fifo @ 0x30] Recovery successful\n"),
        std::string("    title           : \x1b[48;5;0m\x1b[38;5;213m[tee @ 0x1] \x1b[0mSlave muxer #0 failed: x\n"),
        line("rtmp", 0x30, "Server error: [fifo @ 0x30] Recovery successful", true),
        line("tee", 0x1, "Slave muxer #99999999999999999999 failed: x", true),
        line("tee", 0x1, "Slave muxer #6 failed: x", true), queue_error(0, "Recovery failed: x"),
        std::string("\x1b[48;5;0m\x1b[38;5;"), std::string("\x1b[48;5;0m\x1b[38;5;213m[fifo @ 0x"),
        queue_info(0x30, "Error opening rtmp://other/x: Connection refused")}) {
    states_.watch(hostile, false);
    wait(std::chrono::seconds(5));
    EXPECT_EQ(states_.json(), before) << hostile;
  }
}

}  // namespace
}  // namespace weir
