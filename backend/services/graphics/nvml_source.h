#pragma once

#include <map>
#include <memory>

#include "backend/services/graphics/gpu_source.h"

namespace weir {

/// Figures from the driver's management library (NVML), which is looked for when the program runs: it comes with the
/// driver, and most machines have neither.
class NvmlSource : public GpuSource {
 public:
  /// Null when there is no such library or it finds no graphics processor.
  static std::unique_ptr<GpuSource> open();
  ~NvmlSource() override;
  std::vector<GpuProcess> read() override;

 private:
  struct Library;
  using Processes = std::map<pid_t, GpuProcess>;

  explicit NvmlSource(std::unique_ptr<Library> library);
  void read_memory(void* device, int index, Processes& processes) const;
  void read_use(void* device, int index, Processes& processes) const;

  std::unique_ptr<Library> library_;
  std::vector<void*> devices_;
};

}  // namespace weir
