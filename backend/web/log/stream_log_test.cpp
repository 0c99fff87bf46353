#include "backend/web/log/stream_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "backend/platform/files.h"
#include "backend/web/log/stream_log_files.h"
#include "backend/web/response.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_loop.h"

namespace weir {
namespace {

using namespace std::chrono_literals;

constexpr const char* opening = "\x1b[0m[hls @ 0x55d0] \x1b[0mOpening '/hls/0/playlist_0.m3u8.tmp' for writing\n";

LogView view_of(const std::string& query) {
  Request request;
  request.target = *parse_target("/?" + query);
  return parse_log_view(request);
}

class StreamLogTest : public testing::Test {
 protected:
  std::string read(const std::string& query = {}) { return LogReader(view_of(query)).read(log_); }
  void write(std::string_view text) {
    log_.write(text);
    loop_.advance(1500ms);
  }

  test::TestLoop loop_;
  StandardBuffer log_;
};

TEST_F(StreamLogTest, EachLineHasItsTimeAndEachCycleItsBeginning) {
  log_.mark_cycle(1);
  log_.write("first\n");
  loop_.advance(5ms);
  write("\x1b[31msecond\x1b[0m rtmp://u:secret@h/x\n");
  log_.mark_cycle(2);
  loop_.advance(1s);
  log_.write("\x1b[0m");
  write(opening);
  write("third\n");
  log_.mark_cycle(3);
  EXPECT_EQ(read("plain=1"),
            "2019-12-20T00:00:00.000Z ---- cycle 1 ----\n"
            "2019-12-20T00:00:00.000Z first\n"
            "2019-12-20T00:00:00.000Z second rtmp://u:***@h/x\n"
            "2019-12-20T00:00:01.505Z ---- cycle 2 ----\n"
            "2019-12-20T00:00:04.005Z third\n"
            "2019-12-20T00:00:05.505Z ---- cycle 3 ----\n");
  EXPECT_NE(read().find("\x1b[31msecond"), std::string::npos);
  EXPECT_NE(read("all=1&plain=1").find("02.505Z [hls @ 0x55d0] Opening"), std::string::npos);
}

TEST_F(StreamLogTest, AReaderGetsEachLineOnceAndIsToldOfWhatItMissed) {
  LogReader reader(view_of("plain=1&follow=1"));
  log_.mark_cycle(1);
  write("first\nhalf a ");
  EXPECT_EQ(last_lines(reader.read(log_), 1), "2019-12-20T00:00:00.000Z first\n");
  EXPECT_EQ(reader.read(log_), "");
  EXPECT_EQ(last_lines(read(), 1), "2019-12-20T00:00:00.000Z half a \n");
  write("line\n");
  EXPECT_EQ(reader.read(log_), "2019-12-20T00:00:00.000Z half a line\n");
  const std::string line = std::string(999, 'x') + "\n";
  for (int i = 0; i < 300; ++i) log_.write(line);
  const std::string rest = reader.read(log_);
  EXPECT_TRUE(rest.starts_with("(")) << rest.substr(0, 100);
  EXPECT_NE(rest.find(" bytes of the log are not kept)\n2019-12-20T00:00:03.000Z xxx"), std::string::npos);
  log_.truncate();
  write("after\n");
  EXPECT_NE(reader.read(log_).find("Z after\n"), std::string::npos);
}

TEST_F(StreamLogTest, TimesOfALogThatIsFullTakeLittleMemory) {
  for (int i = 0; i < 5000; ++i) {
    log_.write("a line of a usual length, as FFmpeg writes it again and again and again\n");
    loop_.advance(100ms);
    log_.mark_cycle(i + 1);
  }
  EXPECT_LE(log_.end() - log_.begin(), StandardBuffer::capacity);
  EXPECT_LE(log_.marks().size(), 8000U);
  log_.truncate();
  for (int i = 0; i < 5000; ++i) log_.mark_cycle(6000 + i);
  EXPECT_LE(log_.marks().size(), 110U);
}

TEST(LastLinesTest, AreTheLastLines) {
  EXPECT_EQ(last_lines("a\nb\nc\n", 2), "b\nc\n");
  EXPECT_EQ(last_lines("a\nb\n", 5), "a\nb\n");
  EXPECT_EQ(last_lines("a\n", 0), "");
}

TEST(StreamLogFilesTest, AFullFileGivesWayAndTheOldestIsDropped) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path() / "7.log";
  const StreamLogSettings settings{.directory = directory.path(), .max_bytes = 10, .old_files = 2};
  for (const char* text : {"one 78\n", "two\n", "three 8\n", "four 78\n", "five\n"})
    append_to_log(path, text, settings);
  EXPECT_EQ(read_file(path, 100), "five\n");
  EXPECT_EQ(read_file(path + ".1", 100), "four 78\n");
  EXPECT_EQ(read_file(path + ".2", 100), "three 8\n");
  EXPECT_FALSE(std::filesystem::exists(path + ".3"));
  EXPECT_THROW(append_to_log("/dev/full", "x\n", settings), std::system_error);
}

}  // namespace
}  // namespace weir
