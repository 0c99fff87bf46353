#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/loop.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"
#include "backend/stream/runtime/timetable.h"

namespace weir {

namespace {

// Probes the inputs ahead of the one in use, best first, and restarts on the first that answers.
Async<bool> switch_to_better_input(Stream& stream) {
  for (int index = 0; index < stream.ffmpeg->input_index; ++index) {
    const std::string url = to_text(stream.conf->get_json_conf(fmt::format("input.{}.url", index)));
    const std::unique_ptr<AVStreamInfo> probe = siblings().streaminfo();
    const bool answers = co_await probe->probe(fmt::format("-i '{}'", url));
    stream.note_input({.index = index, .answers = answers, .time = Loop::current().clock().wall()});
    if (!answers) {
      stream.debug(fmt::format("Priority URL #{} {} does not answer yet", index, url));
      continue;
    }
    stream.info(fmt::format("Switching to priority URL #{} {}", index, url));
    Reason reason{.cause = Cause::better_input, .text = fmt::format("input #{} answers", index)};
    co_await stream.restart(index, std::move(reason));
    co_return true;
  }
  co_return false;
}

}  // namespace

Async<> schedule_monitor(Stream& stream) {
  const Timetable switching = read_timetable(*stream.conf, "input.switch");
  const Timetable restarting = read_timetable(*stream.conf, "input.restart");
  for (;;) {
    co_await sleep(std::chrono::seconds(60));
    const std::tm local = local_time(Loop::current().clock().wall());
    if (restarting.matches(local)) {
      stream.info("Restarting according to the schedule");
      Reason reason{.cause = Cause::timetable};
      co_await stream.restart(0, std::move(reason));
      co_return;
    }
    if (!switching.matches(local)) continue;
    const bool switched = co_await switch_to_better_input(stream);
    if (switched) co_return;
  }
}

}  // namespace weir
