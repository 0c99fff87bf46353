#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/stream/runtime/memory_limit.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using test::progress_line;

TEST(MemoryLimitTest, LeavesAQuarterAndAtLeast512) {
  struct Case {
    Value baseline;
    const char* limit;
  };
  for (const Case& c : {Case{768, "1280"}, Case{100, "612"}, Case{2047, "2559"}, Case{2048, "2560.0"},
                        Case{3000, "3750.0"}, Case{2049, "2561.25"}, Case{768.0, "1280.0"}}) {
    EXPECT_EQ(to_text(memory_limit(c.baseline)), c.limit);
  }
  for (const char* text : {"", "4G", "-1", " 4", "4.0"}) EXPECT_FALSE(digits_setting(text)) << text;
}

class ProcessMonitorTest : public test::StreamFixture {};

TEST_F(ProcessMonitorTest, RestartsWhenGraphicsMemoryOutgrowsItsLimit) {
  world.graphics_memory() = 0;
  run_to_first_progress();
  say(progress_line("00:00:11.00"));
  world.loop.advance(3s);
  world.graphics_memory() = 1280;
  world.child().rss = 562ULL << 20;
  world.loop.advance(60s);
  EXPECT_EQ(launches(), 1u) << "use that is equal to a limit is tolerated";
  world.graphics_memory() = 1281;
  world.loop.advance(60s);
  EXPECT_EQ(launches(), 2u);
  EXPECT_TRUE(logged("Graphics memory usage is exceeded the 1280 MiB limits"));
}

TEST_F(ProcessMonitorTest, WaitsForTheQueueOfTheLogoRemoval) {
  ASSERT_TRUE(conf->set_json_conf("video.cvdelogo", {{"filename", "logo.png"}, {"buffer_queue_size", ""}}));
  world.input_streams = {{.stream_type = "v", .fps = 25, .bitrate_avg = {}, .bitrate = {}}};
  run_to_first_progress();
  say(progress_line("00:00:41.00"));
  world.loop.advance(10s);
  world.child().rss = 3000ULL << 20;  // before the baseline, so not beyond it
  say(progress_line("00:00:42.00"));
  world.loop.advance(120s);
  EXPECT_EQ(launches(), 1u);
  EXPECT_TRUE(world.log_lines.empty());
}

TEST_F(ProcessMonitorTest, ReportsWhatItCannotReadAndLeavesTheStreamAlone) {
  ASSERT_TRUE(conf->set_json_conf("max_sys_mem", 4096));
  run_to_first_progress();
  say(progress_line("00:00:11.00"));
  world.loop.advance(3s);
  EXPECT_TRUE(logged("AttributeError"));
  EXPECT_EQ(status(), "running");
  world.loop.advance(120s);
  EXPECT_EQ(launches(), 1u);
}

}  // namespace
}  // namespace weir
