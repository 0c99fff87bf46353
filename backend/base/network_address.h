#pragma once

#include <optional>
#include <string>

#include "backend/base/value.h"

namespace weir {

/// A host name, an IPv4 address or an IPv6 address (in brackets then, as URLs want it); nothing for any other value.
std::optional<std::string> read_host(const Value& value);

/// A port from 1 to 65535, from a number or a text of digits; nothing for any other value.
std::optional<int> read_port(const Value& value);

/// A name or path within a URL: a text without white space, control characters and characters that end a path;
/// nothing for any other value. `allow_query` lets a "?" begin a query.
std::optional<std::string> read_url_path(const Value& value, bool allow_query);

}  // namespace weir
