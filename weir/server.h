#pragma once

#include "backend/platform/async.h"
#include "backend/platform/signals.h"
#include "backend/services/configuration/server_settings.h"
#include "backend/services/journal/journal_history.h"
#include "backend/services/journal/journal_log.h"
#include "backend/stream/manager/failed_streams.h"
#include "backend/web/log/stream_log_files.h"
#include "backend/web/server_stream_manager.h"
#include "backend/web/web_application.h"
#include "weir/services.h"

namespace weir {

/// The server: the services, the streams on them, and the web layer.
class Server {
 public:
  /// The data directory is made and applied. Throws `StartFailure`.
  explicit Server(const ServerSettings& settings);

  /// Runs until SIGTERM or SIGINT, then ends every transcoder; a second signal ends the process at once. Returns the
  /// process's exit status.
  int run();

 private:
  void load_profiles();
  void listen(const ServerSettings& settings);
  Async<> serve();
  Async<bool> start_streams();
  Async<> end();
  Async<> force_exit_at_signal();

  Signals signals_;
  HlsWindows windows_;
  Services services_;
  JournalLog journal_log_;
  JournalHistory history_;
  ServerStreamManager manager_;
  FailedStreams failed_streams_{manager_};
  WebApplication web_;
  StreamLogFiles stream_logs_;
  const bool hastens_launches_;
  int exit_status_ = 0;
};

}  // namespace weir
