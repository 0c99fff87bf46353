#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/stream.h"
#include "backend/stream/runtime/timetable.h"

namespace weir {

Async<> Stream::schedule_monitor() { return guarded(follow_timetables()); }

Async<> Stream::follow_timetables() {
  const Timetable switching = read_timetable(*conf, "input.switch");
  const Timetable restarting = read_timetable(*conf, "input.restart");
  for (;;) {
    co_await sleep(std::chrono::seconds(60));
    const std::tm local = local_time(Loop::current().clock().wall());
    if (restarting.matches(local)) {
      info("Restarting according to the schedule");
      co_await restart();
      co_return;
    }
    if (!switching.matches(local)) continue;
    const bool switched = co_await switch_to_better_input();
    if (switched) co_return;
  }
}

// Probes the inputs ahead of the one in use, best first, and restarts on the first that answers.
Async<bool> Stream::switch_to_better_input() {
  for (int index = 0; index < ffmpeg->input_index; ++index) {
    const std::string url = to_text(conf->get_json_conf(fmt::format("input.{}.url", index)));
    const std::unique_ptr<AVStreamInfo> probe = siblings().streaminfo();
    const bool answers = co_await probe->probe(fmt::format("-i '{}'", url));
    if (!answers) continue;
    info(fmt::format("Switching to priority URL #{} {}", index, url));
    co_await restart(index);
    co_return true;
  }
  co_return false;
}

}  // namespace weir
