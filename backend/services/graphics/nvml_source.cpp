#include "backend/services/graphics/nvml_source.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>

namespace weir {

namespace {

// The few declarations of the library that are needed, as its binary interface has them.
using Device = void*;
constexpr int success = 0;
constexpr int insufficient_size = 7;
constexpr unsigned long long unknown_memory = ~0ULL;
constexpr unsigned initial_entries = 256;
constexpr unsigned max_entries = 65'536;

struct ProcessMemory {
  unsigned pid;
  unsigned long long used_bytes;
  unsigned gpu_instance;
  unsigned compute_instance;
};

struct ProcessUse {
  unsigned pid;
  unsigned long long time_stamp;
  unsigned sm;
  unsigned memory;
  unsigned encoder;
  unsigned decoder;
};

// Has a function of the library fill a list; it says when the list is too short. Empty when it fails.
template <class Entry, class Fill>
std::vector<Entry> read_list(const Fill& fill) {
  for (unsigned size = initial_entries; size <= max_entries;) {
    std::vector<Entry> entries(size);
    unsigned count = size;
    const int result = fill(entries.data(), &count);
    if (result == success) {
      entries.resize(std::min(count, size));
      return entries;
    }
    if (result != insufficient_size) break;
    size = std::max(count, 2 * size);
  }
  return {};
}

struct CloseLibrary {
  void operator()(void* handle) const { ::dlclose(handle); }
};

}  // namespace

struct NvmlSource::Library {
  using ReadMemory = int (*)(Device, unsigned*, ProcessMemory*);

  std::unique_ptr<void, CloseLibrary> handle{::dlopen("libnvidia-ml.so.1", RTLD_NOW | RTLD_LOCAL)};
  int (*init)() = find<int (*)()>("nvmlInit_v2");
  int (*shutdown)() = find<int (*)()>("nvmlShutdown");
  int (*count)(unsigned*) = find<int (*)(unsigned*)>("nvmlDeviceGetCount_v2");
  int (*device)(unsigned, Device*) = find<int (*)(unsigned, Device*)>("nvmlDeviceGetHandleByIndex_v2");
  int (*use)(Device, ProcessUse*, unsigned*,
             unsigned long long) = find<decltype(use)>("nvmlDeviceGetProcessUtilization");
  std::array<ReadMemory, 2> memory{find<ReadMemory>("nvmlDeviceGetComputeRunningProcesses_v3"),
                                   find<ReadMemory>("nvmlDeviceGetGraphicsRunningProcesses_v3")};

  bool complete() const { return init && shutdown && count && device; }

 private:
  template <class Function>
  Function find(const char* name) const {
    return handle ? reinterpret_cast<Function>(::dlsym(handle.get(), name)) : nullptr;
  }
};

NvmlSource::NvmlSource(std::unique_ptr<Library> library) : library_(std::move(library)) {
  unsigned count = 0;
  if (library_->count(&count) != success) return;
  for (unsigned index = 0; index < count; ++index) {
    Device device = nullptr;
    devices_.push_back(library_->device(index, &device) == success ? device : nullptr);
  }
}

NvmlSource::~NvmlSource() { library_->shutdown(); }

std::unique_ptr<GpuSource> NvmlSource::open() {
  auto library = std::make_unique<Library>();
  if (!library->complete() || library->init() != success) return nullptr;
  std::unique_ptr<NvmlSource> source(new NvmlSource(std::move(library)));
  if (source->devices_.empty()) return nullptr;
  return source;
}

std::vector<GpuProcess> NvmlSource::read() {
  std::vector<GpuProcess> result;
  for (std::size_t index = 0; index < devices_.size(); ++index) {
    if (!devices_[index]) continue;
    Processes processes;
    read_memory(devices_[index], static_cast<int>(index), processes);
    read_use(devices_[index], static_cast<int>(index), processes);
    for (const auto& [pid, process] : processes) result.push_back(process);
  }
  return result;
}

void NvmlSource::read_memory(void* device, int index, Processes& processes) const {
  for (const Library::ReadMemory read : library_->memory) {
    if (!read) continue;
    const auto entries =
        read_list<ProcessMemory>([&](ProcessMemory* list, unsigned* count) { return read(device, count, list); });
    for (const ProcessMemory& entry : entries) {
      GpuProcess& process = processes[static_cast<pid_t>(entry.pid)];
      process.pid = static_cast<pid_t>(entry.pid);
      process.gpu = index;
      if (entry.used_bytes != unknown_memory) process.memory_mib = static_cast<unsigned>(entry.used_bytes >> 20);
    }
  }
}

void NvmlSource::read_use(void* device, int index, Processes& processes) const {
  if (!library_->use) return;
  const auto samples =
      read_list<ProcessUse>([&](ProcessUse* list, unsigned* count) { return library_->use(device, list, count, 0); });
  // The samples go back in time over several seconds; the latest of a process counts.
  std::map<pid_t, unsigned long long> latest;
  for (const ProcessUse& sample : samples) {
    const auto pid = static_cast<pid_t>(sample.pid);
    const auto process = processes.find(pid);
    if (process == processes.end() || sample.time_stamp < latest[pid]) continue;
    latest[pid] = sample.time_stamp;
    process->second.gpu = index;
    process->second.sm = sample.sm;
    process->second.encoder = sample.encoder;
    process->second.decoder = sample.decoder;
  }
}

}  // namespace weir
