#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "backend/platform/async.h"
#include "backend/web/http_figures.h"
#include "backend/web/request.h"
#include "backend/web/response.h"
#include "backend/web/tls_context.h"

namespace weir {

/// Answers a request; it must not fail.
using HttpHandler = std::function<Async<Response>(Request)>;

/// What clients can ask of the server's memory and time.
struct HttpLimits {
  std::size_t header_bytes = 16 * 1024;
  std::size_t body_bytes = 1 << 20;
  std::vector<std::string> large_path = {};  ///< the path whose requests may have larger bodies; empty: none
  std::size_t large_body_bytes = 16 << 20;
  std::size_t total_body_bytes = 64 << 20;  ///< of all requests that are being read or answered
  std::size_t connections = 1024;
  std::chrono::seconds idle{60};        ///< without a request
  std::chrono::seconds handshake{10};   ///< of TLS, from its first byte on
  std::chrono::seconds read{30};        ///< for a request to arrive whole, from its first byte on
  std::chrono::seconds write{30};       ///< for each `chunk_bytes` of an answer to be taken
  std::chrono::seconds live_write{10};  ///< for each part of a live response to be taken
  std::size_t chunk_bytes = 256 * 1024;
};

/// What the connections of one server share.
struct HttpService {
  HttpHandler handler;
  HttpLimits limits;
  std::set<std::string> trusted_proxies;  ///< addresses whose X-Forwarded-For header names the client
  std::size_t reserved_body_bytes = 0;
  std::size_t peak_body_bytes = 0;  ///< since freed memory was last given back to the system
  HttpFigures figures = {};
  std::unique_ptr<TlsContext> tls = {};  ///< null: plain HTTP
  /// Whether plain HTTP for the request's host may be redirected to TLS there.
  std::function<bool(const Request&)> knows_host = {};
};

}  // namespace weir
