#include "backend/base/network_address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/numbers.h"
#include "backend/base/text.h"

namespace weir {

namespace {

bool is_ipv6(const std::string& text) {
  in6_addr address;
  // inet_pton reads up to a NUL.
  if (text.find('\0') != std::string::npos) return false;
  return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool is_host_character(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' || c == '_';
}

}  // namespace

std::optional<std::string> read_host(const Value& value) {
  if (!value.is_string()) return std::nullopt;
  std::string host(trim(value.get_ref<const std::string&>()));
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  if (is_ipv6(host)) return "[" + host + "]";
  const bool plain = !host.empty() && host.size() <= 253 && std::ranges::all_of(host, is_host_character);
  return plain ? std::optional(host) : std::nullopt;
}

std::optional<int> read_port(const Value& value) {
  std::optional<long long> port;
  if (value.is_number_unsigned() || value.is_number_integer()) port = parse_integer(value.dump());
  if (value.is_string() && is_number(trim(value.get_ref<const std::string&>()))) {
    port = parse_integer(value.get_ref<const std::string&>());
  }
  if (!port || *port < 1 || *port > 65535) return std::nullopt;
  return static_cast<int>(*port);
}

std::optional<std::string> read_url_path(const Value& value, bool allow_query) {
  if (!value.is_string()) return std::nullopt;
  std::string path(trim(value.get_ref<const std::string&>()));
  auto refused = [allow_query](unsigned char c) {
    return c <= ' ' || c == 0x7f || c == '#' || c == '\\' || c == '"' || (c == '?' && !allow_query);
  };
  if (path.empty() || std::ranges::any_of(path, refused)) return std::nullopt;
  return path;
}

}  // namespace weir
