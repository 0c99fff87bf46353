#include "backend/web/request_source.h"

#include <boost/algorithm/string.hpp>
#include <boost/asio/ip/address.hpp>
#include <locale>
#include <vector>

namespace weir {

std::string_view strip_port(std::string_view host) {
  if (host.starts_with('[')) return host.substr(1, host.find(']') - 1);
  const std::size_t colon = host.find(':');
  return colon == host.rfind(':') ? host.substr(0, colon) : host;
}

std::string find_client_address(const std::string& connection, std::string_view forwarded_for,
                                const std::set<std::string>& trusted_proxies) {
  std::string client = connection;
  std::vector<std::string> hops;
  boost::split(hops, forwarded_for, boost::is_any_of(","));
  // Each proxy appends the address that it was asked from.
  while (!hops.empty() && trusted_proxies.contains(client)) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(boost::trim_copy(hops.back()), error);
    if (error) break;
    client = address.to_string();
    hops.pop_back();
  }
  return client;
}

bool is_loopback_host(std::string_view host) {
  const std::string name(strip_port(host));
  if (boost::iequals(name, "localhost", std::locale::classic())) return true;
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(name, error);
  return !error && address.is_loopback();
}

}  // namespace weir
