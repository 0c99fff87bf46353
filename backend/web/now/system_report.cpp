#include "backend/web/now/system_report.h"

#include <array>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/collaborators/config.h"
#include "backend/platform/loop.h"
#include "backend/platform/system_figures.h"

namespace weir {

namespace {

constexpr std::chrono::seconds disk_patience{2};

double milliseconds(std::chrono::nanoseconds time) {
  return std::round(std::chrono::duration<double, std::milli>(time).count() * 100) / 100;
}

template <class T>
Value to_value(const std::optional<T>& figure) {
  return figure ? Value(*figure) : Value();
}

Value describe(const std::string& directory, const std::optional<DiskFigures>& figures, bool answered) {
  Value value = {{"directory", directory}, {"total_bytes", nullptr}, {"free_bytes", nullptr}};
  if (figures) {
    value["total_bytes"] = figures->total_bytes;
    value["free_bytes"] = figures->free_bytes;
  } else {
    value["error"] = answered ? "the file system cannot be read" : "the file system does not answer";
  }
  return value;
}

Value describe_turns(const TurnTimes& turns) {
  Value classes = Value::array();
  for (std::size_t i = 0; i < turns.counts().size(); ++i) {
    const bool is_last = i == TurnTimes::bounds.size();
    classes.push_back(
        {{"up_to_ms", is_last ? Value() : Value(milliseconds(TurnTimes::bounds[i]))}, {"count", turns.counts()[i]}});
  }
  return classes;
}

}  // namespace

Async<Value> SystemReport::make() {
  const SystemFigures figures = read_system_figures();
  Value report;
  report["processors"] = {{"count", figures.processors}, {"load", to_value(figures.load)}};
  report["memory"] = {{"total_bytes", to_value(figures.memory_bytes)},
                      {"available_bytes", to_value(figures.available_bytes)}};
  report["disks"]["hls"] = co_await describe_disk(Config::HLS_DIRECTORY, 0);
  report["disks"]["recordings"] = co_await describe_disk(Config::UPLOAD_DIRECTORY, 1);
  report["gpus"] = describe_gpus();
  report["loop"] = describe_loop();
  const std::string ffmpeg_version = co_await ffmpeg_.get();
  report["versions"] = {{"weir", Config::VERSION}, {"ffmpeg", ffmpeg_version}, {"kernel", figures.kernel}};
  report["uptime_seconds"] = std::chrono::duration_cast<std::chrono::seconds>(now() - begin_).count();
  report["descriptors"] = {{"open", to_value(figures.open_descriptors)}, {"limit", figures.max_descriptors}};
  co_return report;
}

Async<Value> SystemReport::describe_disk(std::string directory, std::size_t disk) {
  const auto guard = co_await asking_.acquire();
  const auto figures = std::make_shared<std::optional<DiskFigures>>();
  const bool answered = co_await disks_[disk].run([=] { *figures = read_disk_figures(directory); }, disk_patience);
  // Without an answer the thread may be writing to the figures.
  co_return describe(directory, answered ? *figures : std::nullopt, answered);
}

// What the streams use of each graphics processor.
Value SystemReport::describe_gpus() const {
  NvidiaProcessManager& graphics = *siblings().nvidia_process_manager;
  struct Use {
    int streams = 0;
    double memory_mib = 0;
  };
  std::map<int, Use> uses;
  for (const auto& [id, stream] : manager_.streams) {
    if (!stream->proc) continue;
    const Value index = graphics.query_gpu(stream->proc->pid());
    if (!index.is_number()) continue;
    Use& use = uses[index.get<int>()];
    ++use.streams;
    const Value memory = graphics.query_fb(stream->proc->pid());
    if (memory.is_number()) use.memory_mib += memory.get<double>();
  }
  Value gpus = Value::array();
  for (const auto& [index, use] : uses)
    gpus.push_back({{"index", index}, {"streams", use.streams}, {"streams_memory_mib", use.memory_mib}});
  return gpus;
}

Value SystemReport::describe_loop() const {
  const TurnTimes& turns = Loop::current().turns();
  return {{"lag_ms", milliseconds(turns.latest_lag())},
          {"longest_lag_ms", milliseconds(turns.longest_lag())},
          {"longest_turn_ms", milliseconds(turns.longest())},
          {"busy_seconds", std::round(std::chrono::duration<double>(turns.total()).count() * 1000) / 1000},
          {"turns", describe_turns(turns)}};
}

}  // namespace weir
