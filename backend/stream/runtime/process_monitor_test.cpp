#include "backend/stream/runtime/memory_limit.h"
#include "tests/support/stream_fixture.h"

namespace weir {
namespace {

using namespace std::chrono_literals;
using test::progress_line;

TEST(MemoryLimitTest, LeavesAQuarterAndAtLeast512) {
  EXPECT_EQ(to_text(memory_limit(2047)), "2559");
  EXPECT_EQ(to_text(memory_limit(3000)), "3750.0");
}

class ProcessMonitorTest : public test::StreamFixture {};

// The baselines are 768 MiB, assumed, and 50 MiB.
TEST_F(ProcessMonitorTest, RestartsOnceAMinuteWhereALimitIsExceeded) {
  using Case = std::tuple<const char*, const char*, int, int, bool, std::string>;
  for (const auto& [max_gpu_mem, max_sys_mem, graphics, system, gone, warning] : {
           Case{"", "", 1280, 562, false, ""},
           Case{"", "", 1281, 50, false, "Graphics memory usage is exceeded the 1280 MiB limits"},
           Case{"900", "", 901, 50, false, "Graphics memory usage is exceeded the 900 MiB limits"},
           Case{"4G", "60", 1280, 61, false, "System memory usage is exceeded the 60 MiB limits"},
           Case{"", "", 1281, 50, true, "Graphics memory usage is exceeded the 1280 MiB limits"},
       }) {
    world.log_lines.clear();
    ASSERT_TRUE(conf->set_json_conf("max_gpu_mem", max_gpu_mem));
    ASSERT_TRUE(conf->set_json_conf("max_sys_mem", max_sys_mem));
    world.graphics_memory() = 0;
    run_to_first_progress();
    say(progress_line("00:00:11.00"));
    world.loop.advance(3s);
    world.graphics_memory() = graphics;
    world.child().rss = static_cast<std::uint64_t>(system) << 20;
    if (gone) world.child().status = 0;
    world.loop.advance(57s);
    EXPECT_TRUE(world.log_lines.empty()) << world.log_lines[0];
    world.loop.advance(3s);
    const auto expected =
        warning.empty() ? std::vector<std::string>{} : std::vector<std::string>{"warning Stream 7 Lobby: " + warning};
    EXPECT_EQ(world.log_lines, expected);
    world.child().exit(0);
    world.loop.settle();
    stop();
  }
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

}  // namespace
}  // namespace weir
