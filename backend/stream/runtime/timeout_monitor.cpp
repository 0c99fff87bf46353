#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

Async<> Stream::timeout_monitor() { return guarded(watch_media_time()); }

Async<> Stream::watch_media_time() {
  std::optional<long long> stats_time;
  while (!proc->poll()) {
    if (stats.time == stats_time) {
      const int index = ffmpeg->input_index;
      const Value& url = conf->get_json_conf(fmt::format("input.{}.url", index));
      warning(fmt::format("URL #{} {} is timeout", index, to_text(url)));
      co_await restart();
      co_return;
    }
    stats_time = stats.time;
    co_await sleep(std::chrono::seconds(180));
  }
}

}  // namespace weir
