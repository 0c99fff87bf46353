#include "backend/collaborators/version.h"

#include <nlohmann/json.hpp>

namespace weir {

void StreamConfigVersionControl::update() {
  for (const char* key : {"min_speed", "max_speed", "max_sys_mem", "max_gpu_mem"}) {
    if (!conf_.document().contains(key)) conf_.set_json_conf(key, "");
  }
}

}  // namespace weir
