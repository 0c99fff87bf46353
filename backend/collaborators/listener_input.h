#pragma once

#include "backend/collaborators/jsonconf.h"

namespace weir {

/// Whether the stream's input waits for somebody to connect and send, instead of fetching: an RTMP, TCP, HTTP, SRT or
/// RTSP address that listens, by its options or its query. Until then its transcoder makes no progress, and nothing is
/// wrong.
bool is_listener_input(const JsonConf& conf, int input);

}  // namespace weir
