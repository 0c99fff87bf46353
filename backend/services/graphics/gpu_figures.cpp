#include "backend/services/graphics/gpu_figures.h"

#include <nlohmann/json.hpp>

namespace weir {

namespace {

constexpr std::chrono::seconds longest_use{1};

Value to_value(const std::optional<unsigned>& figure) { return figure ? Value(*figure) : Value(); }

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

Value GpuFigures::query_dec(pid_t pid) {
  const GpuProcess* process = find(pid);
  return process ? to_value(process->decoder) : Value();
}

Value GpuFigures::query_sm(pid_t pid) {
  const GpuProcess* process = find(pid);
  return process ? to_value(process->sm) : Value();
}

Value GpuFigures::query_enc(pid_t pid) {
  const GpuProcess* process = find(pid);
  return process ? to_value(process->encoder) : Value();
}

Value GpuFigures::query_fb(pid_t pid) {
  const GpuProcess* process = find(pid);
  return process ? to_value(process->memory_mib) : Value();
}

}  // namespace weir
