#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/memory_limit.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

using std::chrono::seconds;

constexpr long long settled_after = 10;          // seconds of media
constexpr long long default_queue_length = 768;  // frames
constexpr long long assumed_graphics_use = 768;  // MiB, where no figure is known

}  // namespace

/// Figures in MiB; null while none is known.
struct Stream::MemoryUse {
  Value graphics;
  Value system;
};

Async<> Stream::process_monitor() { return guarded(watch_memory()); }

Async<> Stream::watch_memory() {
  try {
    while (get_status() != "running") co_await sleep(seconds(1));
    const MemoryUse baseline = co_await settle_memory();
    const MemoryUse limits = memory_limits(baseline);
    while (!proc->poll()) {
      co_await sleep(seconds(60));
      const bool exceeded = memory_exceeds(limits);
      if (!exceeded) continue;
      co_await restart();
      co_return;
    }
  } catch (const NoSuchProcess&) {
    // The supervision task deals with the end of the process.
  }
}

// Seconds of media after which the system memory has settled: longer with the logo removal, which fills a queue.
double Stream::memory_settled_after() const {
  if (!is_set(conf->get_json_conf("video.cvdelogo.filename"))) return settled_after;
  const auto size = digits_setting(conf->get_json_conf("video.cvdelogo.buffer_queue_size"));
  const auto videos = streaminfo->get_stream_by_specifier(FFmpegStreamSpecifier{"v", 0});
  if (videos.empty()) return settled_after;
  return settled_after + queue_seconds(size.value_or(default_queue_length), videos.front().fps);
}

// Takes both baselines once enough media is transcoded; the first is taken again until the second is there too.
Async<Stream::MemoryUse> Stream::settle_memory() {
  const double system_settled = memory_settled_after();
  MemoryUse baseline;
  while (baseline.graphics.is_null() || baseline.system.is_null()) {
    if (stats.time > settled_after) {
      const Value use = siblings().nvidia_process_manager->query_fb(proc->pid());
      baseline.graphics = is_set(use) ? use : Value(assumed_graphics_use);
    }
    if (static_cast<double>(stats.time) > system_settled) {
      baseline.system = static_cast<long long>(procinfo->memory_info().rss >> 20);
    }
    co_await sleep(seconds(1));
  }
  co_return baseline;
}

Stream::MemoryUse Stream::memory_limits(const MemoryUse& baseline) const {
  MemoryUse limits{memory_limit(baseline.graphics), memory_limit(baseline.system)};
  if (const auto limit = digits_setting(conf->get_json_conf("max_gpu_mem"))) limits.graphics = *limit;
  if (const auto limit = digits_setting(conf->get_json_conf("max_sys_mem"))) limits.system = *limit;
  return limits;
}

// Whether a limit is exceeded now, with the warning that says so.
bool Stream::memory_exceeds(const MemoryUse& limits) {
  const Value use = siblings().nvidia_process_manager->query_fb(proc->pid());
  if (is_set(use) && use > limits.graphics) {
    warning(fmt::format("Graphics memory usage is exceeded the {} MiB limits", to_text(limits.graphics)));
    return true;
  }
  const Value system = static_cast<long long>(procinfo->memory_info().rss >> 20);
  if (system > limits.system) {
    warning(fmt::format("System memory usage is exceeded the {} MiB limits", to_text(limits.system)));
    return true;
  }
  return false;
}

}  // namespace weir
