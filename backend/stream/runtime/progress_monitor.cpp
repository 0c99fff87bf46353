#include "backend/platform/clock.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

Async<> progress_monitor(Stream& stream) {
  bool running = false;
  while (auto line = co_await stream.stderr_lines->next()) {
    const bool is_progress = stream.stats.update(*line);
    stream.streaminfo->watch_outputs(*line, is_progress);
    if (is_progress) {
      stream.stats.taken_at = now();
      if (!running) {
        const auto guard = co_await stream.lock.acquire();
        stream.set_status("running");
        stream.tell_running();
      }
      running = true;
      for (const std::string_view code : console_codes_pattern.findall(*line)) stream.stdbuf.write(code);
    } else {
      if (!running) stream.streaminfo->parse(*line);
      stream.cycle.look(*line);
      stream.stdbuf.write(*line);
    }
  }
}

}  // namespace weir
