#include "backend/services/graphics/gpu_figures.h"

#include <nlohmann/json.hpp>

namespace weir {

namespace {

constexpr std::chrono::seconds longest_use{1};

}  // namespace

GpuFigures::GpuFigures(std::unique_ptr<GpuSource> source) : source_(std::move(source)) {}

const GpuProcess* GpuFigures::find(pid_t pid) {
  if (!source_) return nullptr;
  if (!read_at_ || now() - *read_at_ >= longest_use) {
    read_at_ = now();
    processes_.clear();
    for (const GpuProcess& process : source_->read()) processes_.emplace(process.pid, process);
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
