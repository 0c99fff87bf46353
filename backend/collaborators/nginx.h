#pragma once

namespace weir {

/// Settings of the web server that publishes HLS files.
class NginxConfig {
 public:
  virtual ~NginxConfig() = default;
  virtual int get_http_port() const = 0;
};

struct NginxManager {
  NginxConfig& config;
};

}  // namespace weir
