#pragma once

#include <functional>
#include <memory>

#include "backend/collaborators/ffmpeg.h"
#include "backend/collaborators/jsonconf.h"
#include "backend/collaborators/nginx.h"
#include "backend/collaborators/nvidia.h"
#include "backend/collaborators/profile.h"
#include "backend/collaborators/streaminfo.h"
#include "backend/platform/child_process.h"
#include "backend/platform/process_info.h"

namespace weir {

/// How the core reaches the services whose implementation it does not know. The program sets the real ones at
/// start-up, a test its own; whoever sets a reference keeps its target alive. Nothing is called before it is set.
struct Siblings {
  /// A command builder for the document, the input to ask for first, and the object that gets its failure messages.
  /// Both outlive the builder.
  std::function<std::unique_ptr<FFmpeg>(const JsonConf& conf, int input_index, Error* error_handler)> ffmpeg;
  std::function<std::unique_ptr<AVStreamInfo>()> streaminfo;
  std::function<std::unique_ptr<FFmpegRTMPOutput>()> rtmp_output;
  std::function<std::unique_ptr<ProfileDescription>(const JsonConf& conf)> profile_description;
  ProfileManager* profile_manager = nullptr;
  NginxManager* nginx_manager = nullptr;
  NvidiaDriverManager* nvidia_driver_manager = nullptr;
  NvidiaProcessManager* nvidia_process_manager = nullptr;

  std::function<std::unique_ptr<ChildProcess>(const SpawnOptions&)> spawn_child;
  std::function<std::unique_ptr<ProcessInfo>(pid_t)> process_info;
};

/// The one of the process.
Siblings& siblings();

}  // namespace weir
