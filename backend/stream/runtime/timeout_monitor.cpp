#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

Async<> timeout_monitor(Stream& stream) {
  std::optional<long long> stats_time;
  while (!stream.proc->poll()) {
    if (stream.stats.time == stats_time) {
      const int index = stream.ffmpeg->input_index;
      const Value& url = stream.conf->get_json_conf(fmt::format("input.{}.url", index));
      Reason reason{.cause = Cause::stalled, .text = fmt::format("URL #{} {} is timeout", index, to_text(url))};
      stream.warning(reason.text);
      co_await stream.restart(0, std::move(reason));
      co_return;
    }
    stats_time = stream.stats.time;
    co_await sleep(std::chrono::seconds(180));
  }
}

}  // namespace weir
