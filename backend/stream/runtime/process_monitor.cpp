#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"
#include "backend/stream/runtime/memory_limit.h"
#include "backend/stream/runtime/monitors.h"
#include "backend/stream/runtime/stream.h"

namespace weir {

namespace {

using std::chrono::seconds;

constexpr long long settled_after = 10;          // seconds of media
constexpr long long default_queue_length = 768;  // frames
constexpr long long assumed_graphics_use = 768;  // MiB, where no figure is known

/// Figures in MiB; null while none is known.
struct MemoryUse {
  Value graphics;
  Value system;
};

Value graphics_use(const Stream& stream) { return siblings().nvidia_process_manager->query_fb(stream.proc->pid()); }

Value system_use(const Stream& stream) { return static_cast<long long>(stream.procinfo->memory_info().rss >> 20); }

// Seconds of media after which the system memory has settled: longer with the logo removal, which fills a queue.
double memory_settled_after(const Stream& stream) {
  if (!is_set(stream.conf->get_json_conf("video.cvdelogo.filename"))) return settled_after;
  const auto size = digits_setting(stream.conf->get_json_conf("video.cvdelogo.buffer_queue_size"));
  const auto videos = stream.streaminfo->get_stream_by_specifier(FFmpegStreamSpecifier{"v", 0});
  if (videos.empty()) return settled_after;
  return settled_after + queue_seconds(size.value_or(default_queue_length), videos.front().fps);
}

// Takes both baselines once enough media is transcoded; the first is taken again until the second is there too.
Async<MemoryUse> settle_memory(Stream& stream) {
  const double system_settled = memory_settled_after(stream);
  MemoryUse baseline;
  while (baseline.graphics.is_null() || baseline.system.is_null()) {
    if (stream.stats.time > settled_after) {
      const Value use = graphics_use(stream);
      baseline.graphics = is_set(use) ? use : Value(assumed_graphics_use);
    }
    if (static_cast<double>(stream.stats.time) > system_settled) baseline.system = system_use(stream);
    co_await sleep(seconds(1));
  }
  co_return baseline;
}

MemoryUse memory_limits(const JsonConf& conf, const MemoryUse& baseline) {
  MemoryUse limits{memory_limit(baseline.graphics), memory_limit(baseline.system)};
  if (const auto limit = digits_setting(conf.get_json_conf("max_gpu_mem"))) limits.graphics = *limit;
  if (const auto limit = digits_setting(conf.get_json_conf("max_sys_mem"))) limits.system = *limit;
  return limits;
}

// Which limit is exceeded now; empty when none is.
std::string find_excess(const Stream& stream, const MemoryUse& limits) {
  const Value use = graphics_use(stream);
  if (is_set(use) && use > limits.graphics)
    return fmt::format("Graphics memory usage is exceeded the {} MiB limits", to_text(limits.graphics));
  if (system_use(stream) > limits.system)
    return fmt::format("System memory usage is exceeded the {} MiB limits", to_text(limits.system));
  return {};
}

Async<> watch_memory(Stream& stream) {
  while (stream.get_status() != "running") co_await sleep(seconds(1));
  const MemoryUse baseline = co_await settle_memory(stream);
  const MemoryUse limits = memory_limits(*stream.conf, baseline);
  stream.findings.system_limit = limits.system.get<double>();
  stream.findings.graphics_limit = limits.graphics.get<double>();
  while (!stream.proc->poll()) {
    co_await sleep(seconds(60));
    const std::string excess = find_excess(stream, limits);
    if (excess.empty()) continue;
    stream.warning(excess);
    Reason reason{.cause = Cause::memory, .text = excess};
    co_await stream.restart(0, std::move(reason));
    co_return;
  }
}

}  // namespace

Async<> process_monitor(Stream& stream) {
  try {
    co_await watch_memory(stream);
  } catch (const NoSuchProcess&) {
    // The supervision task deals with the end of the process.
  }
}

}  // namespace weir
