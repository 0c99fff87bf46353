#include "backend/services/graphics/gpu_figures.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace weir {

namespace {

constexpr std::chrono::seconds max_age{1};

/// Adds the process's use of a further graphics processor: memory in sum, percentages of the busiest.
void add(GpuProcess& process, const GpuProcess& further) {
  for (const auto figure : {&GpuProcess::sm, &GpuProcess::encoder, &GpuProcess::decoder}) {
    process.*figure = std::max(process.*figure, further.*figure);
  }
  if (further.memory_mib) process.memory_mib = process.memory_mib.value_or(0) + *further.memory_mib;
}

}  // namespace

GpuFigures::GpuFigures(std::unique_ptr<GpuSource> source) : source_(std::move(source)) {}

const GpuProcess* GpuFigures::find(pid_t pid) {
  if (!source_) return nullptr;
  if (!read_at_ || now() - *read_at_ >= max_age) {
    read_at_ = now();
    processes_.clear();
    for (const GpuProcess& process : source_->read()) {
      const auto [known, added] = processes_.emplace(process.pid, process);
      if (!added) add(known->second, process);
    }
  }
  const auto found = processes_.find(pid);
  return found == processes_.end() ? nullptr : &found->second;
}

Value GpuFigures::query_gpu(pid_t pid) {
  const GpuProcess* process = find(pid);
  return process ? Value(process->gpu) : Value();
}

Value GpuFigures::query_dec(pid_t pid) { return figure(pid, &GpuProcess::decoder); }
Value GpuFigures::query_sm(pid_t pid) { return figure(pid, &GpuProcess::sm); }
Value GpuFigures::query_enc(pid_t pid) { return figure(pid, &GpuProcess::encoder); }
Value GpuFigures::query_fb(pid_t pid) { return figure(pid, &GpuProcess::memory_mib); }

Value GpuFigures::figure(pid_t pid, std::optional<unsigned> GpuProcess::* member) {
  const GpuProcess* process = find(pid);
  return process && process->*member ? Value(*(process->*member)) : Value();
}

}  // namespace weir
