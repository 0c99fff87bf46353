#pragma once

#include "backend/collaborators/config.h"
#include "backend/collaborators/nginx.h"

namespace weir {

/// The server publishes HLS files itself, on its own port.
class PublishingPort : public NginxConfig {
 public:
  int get_http_port() const override { return Config::HTTP_PORT; }
};

}  // namespace weir
