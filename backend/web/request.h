#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backend/base/value.h"
#include "backend/web/access/identity.h"
#include "backend/web/url.h"

namespace weir {

/// A request, decoded.
struct Request {
  std::string method;  ///< "GET", …
  Target target;
  std::string host;             ///< of the target, else the Host header, else the address that the client connected to
  std::string origin;           ///< the Origin header; empty when there is none
  std::string range;            ///< the Range header; empty when there is none
  std::string last_event_id;    ///< the Last-Event-ID header; empty when there is none
  std::string if_match;         ///< the If-Match header; empty when there is none
  std::string if_none_match;    ///< the If-None-Match header; empty when there is none
  std::string accept_encoding;  ///< the Accept-Encoding header; empty when there is none
  std::string idempotency_key;  ///< the Idempotency-Key header; empty when there is none
  std::string authorization = {};  ///< the Authorization header
  std::string cookie = {};         ///< the Cookie headers
  std::string fetch_site = {};     ///< the Sec-Fetch-Site header
  std::string body;
  std::string client_address;      ///< without a port; behind a trusted proxy that of the proxy's client
  std::string client_port;         ///< of the connection
  std::string local_address = {};  ///< that the client connected to, without a port
  bool forwarded = false;          ///< a proxy passed it on
  bool secure = false;             ///< the client came through TLS, of the server or, as it says, of a trusted proxy
  bool from_other_site = false;    ///< a browser sends it for a page of another site; see `Access`
  Identity identity = {};          ///< who sends it; see `Access`

  /// Who sends it, as the journal shows it: "anna (192.0.2.7)", or the address alone.
  std::string by() const;

  /// A parameter of the query, of several with one name the last; empty when it is absent.
  std::string_view query(std::string_view name) const;
  /// All parameters of one name, in their order.
  std::vector<std::string> query_all(std::string_view name) const;
};

/// The body as a mapping. Throws `HttpError` with 400 for any other body.
Value read_form(const Request& request);

}  // namespace weir
