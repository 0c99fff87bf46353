#pragma once

#include <memory>

#include "backend/collaborators/siblings.h"
#include "backend/platform/async.h"
#include "backend/platform/signals.h"
#include "backend/services/configuration/server_settings.h"
#include "backend/services/graphics/gpu_figures.h"
#include "backend/services/profiles/profile_store.h"
#include "backend/services/publishing/publishing_port.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/web_application.h"

namespace weir {

/// The server, put together: the services behind the streams, the streams, and the web layer before them.
class Server {
 public:
  /// The data directory is made and applied. Throws `StartFailure`.
  explicit Server(const ServerSettings& settings);

  /// Takes the port and runs until SIGTERM or SIGINT, then ends every transcoder; a second signal ends the process at
  /// once. Returns the process's exit status.
  int run();

 private:
  void connect_siblings();
  void load_profiles();
  void listen(const ServerSettings& settings);
  Async<> live();
  Async<bool> start_streams();
  Async<> end();
  static Async<> leave_at_signal(Server& server);

  Signals signals_;
  ProfileStore profiles_;
  PublishingPort publishing_port_;
  NginxManager publishing_{publishing_port_};
  GpuDriver gpu_driver_;
  GpuFigures gpu_figures_;
  StreamManager manager_;
  WebApplication web_;
  int exit_status_ = 0;
};

}  // namespace weir
