#include "weir/services.h"

#include <nlohmann/json.hpp>

#include "backend/collaborators/config.h"
#include "backend/collaborators/siblings.h"
#include "backend/services/graphics/nvml_source.h"
#include "backend/services/profiles/document_profile.h"
#include "backend/services/transcoder/transcoder.h"

namespace weir {

Services::Services(const std::string& gpu_patch_library, CyclePublisher& publisher)
    : profiles_(Config::PROFILE_DIRECTORY), gpu_driver_(gpu_patch_library), gpu_figures_(NvmlSource::open()) {
  Siblings& all = siblings();
  all.ffmpeg = [&publisher](const JsonConf& conf, int input_index, Error* error_handler) {
    return make_ffmpeg(conf, input_index, error_handler, publisher);
  };
  all.streaminfo = make_streaminfo;
  all.rtmp_output = make_rtmp_output;
  all.profile_description = [](const JsonConf& conf) -> std::unique_ptr<ProfileDescription> {
    return std::make_unique<DocumentProfile>(conf);
  };
  all.profile_manager = &profiles_;
  all.nginx_manager = &publishing_;
  all.nvidia_driver_manager = &gpu_driver_;
  all.nvidia_process_manager = &gpu_figures_;
  all.spawn_child = spawn_child;
  all.process_info = [](pid_t pid) -> std::unique_ptr<ProcessInfo> { return std::make_unique<Process>(pid); };
}

}  // namespace weir
