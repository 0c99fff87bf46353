#include "backend/stream/runtime/stream.h"

namespace weir {

Async<> Stream::progress_monitor() { return guarded(follow_progress()); }

Async<> Stream::follow_progress() {
  bool running = false;
  while (auto line = co_await stderr_lines->next()) {
    if (stats.update(*line)) {
      if (!running) {
        const auto guard = co_await lock.acquire();
        set_status("running");
      }
      running = true;
      for (const std::string_view code : console_codes_pattern.findall(*line)) stdbuf.write(code);
    } else {
      if (!running) streaminfo->parse(*line);
      stdbuf.write(*line);
    }
  }
}

}  // namespace weir
