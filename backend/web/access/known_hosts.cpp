#include "backend/web/access/known_hosts.h"

#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string.hpp>
#include <climits>
#include <locale>

#include "backend/web/request_source.h"

namespace weir {

namespace {

bool are_equal(std::string_view a, std::string_view b) { return boost::iequals(a, b, std::locale::classic()); }

// Browsers leave out the port that is usual for the scheme.
std::string without_usual_port(const std::string& scheme, std::string authority) {
  const std::string port = scheme == "https" ? ":443" : ":80";
  if (authority.ends_with(port)) authority.resize(authority.size() - port.size());
  return authority;
}

// "weir" of "weir.example.org", too. Nothing is asked of the network.
std::vector<std::string> find_machine_names() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return {};
  const std::string full = name.data();
  return {full, full.substr(0, full.find('.')), full.substr(0, full.find('.')) + ".local"};
}

}  // namespace

KnownHosts::KnownHosts(const std::vector<std::string>& public_urls) : machine_names_(find_machine_names()) {
  for (const std::string& url : public_urls) {
    const std::size_t scheme = url.find("://");
    const std::string name = url.substr(0, scheme);
    public_urls_.push_back({name, without_usual_port(name, url.substr(scheme + 3))});
  }
}

bool KnownHosts::has(const Request& request) const {
  const std::string name(strip_port(request.host));
  const auto is_name = [&](const std::string& known) { return are_equal(name, known); };
  if (name.empty()) return false;
  return is_loopback_host(request.host) || is_name(request.local_address) ||
         std::ranges::any_of(machine_names_, is_name) || std::ranges::any_of(public_urls_, [&](const PublicUrl& url) {
           return is_name(std::string(strip_port(url.authority)));
         });
}

bool KnownHosts::is_secure(std::string_view host) const {
  return std::ranges::any_of(public_urls_, [&](const PublicUrl& url) {
    return url.scheme == "https" && are_equal(strip_port(url.authority), strip_port(host));
  });
}

bool KnownHosts::is_from_other_site(const Request& request) const {
  // "none": the user typed the address.
  if (!request.fetch_site.empty()) return request.fetch_site != "same-origin" && request.fetch_site != "none";
  if (request.origin.empty()) return false;
  const std::size_t scheme = request.origin.find("://");
  if (scheme == std::string::npos) return true;
  // A proxy may have ended TLS without saying so.
  const bool has_its_scheme = !request.secure || request.origin.starts_with("https:");
  if (has_its_scheme && request.origin.substr(scheme + 3) == request.host) return false;
  return std::ranges::none_of(public_urls_, [&](const PublicUrl& url) {
    return are_equal(url.scheme + "://" + url.authority, request.origin);
  });
}

}  // namespace weir
