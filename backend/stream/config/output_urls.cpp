#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/siblings.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/stream/config/stream_config.h"

namespace weir {

namespace {

// Percent-encoding of a path: unreserved characters and "/" stay (RFC 3986, section 2.3).
std::string quote(const Value& name) {
  if (!name.is_string()) throw TypeError("a file name that has to be quoted is not text");
  std::string quoted;
  for (const char c : name.get_ref<const std::string&>()) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                       c == '.' || c == '-' || c == '~' || c == '/';
    plain ? quoted += c : quoted += fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return quoted;
}

const std::string& path_part(const Value& output, std::string_view name) {
  const Value& part = member(output, name);
  if (!part.is_string()) throw TypeError(fmt::format("a file output's {} is not text", name));
  return part.get_ref<const std::string&>();
}

std::string hls_url(const Value& id, const Value& output, std::string_view host) {
  return fmt::format("{}://{}:{}/{}/{}", Config::HTTP_SCHEME, host.substr(0, host.find(':')),
                     siblings().nginx_manager->config.get_http_port(), to_text(id),
                     quote(member(output, "playlist_name")));
}

std::optional<std::string> rtmp_url(const Value& output) {
  const std::unique_ptr<FFmpegRTMPOutput> address = siblings().rtmp_output();
  const bool accepted = address->set_server(member(output, "server")) && address->set_port(member(output, "port")) &&
                        address->set_app(member(output, "app")) && address->set_playpath(member(output, "playpath")) &&
                        address->set_username(member(output, "username")) &&
                        address->set_password(member(output, "password"));
  if (!accepted) return std::nullopt;
  return address->get_url();
}

std::optional<std::string> output_url(const Value& id, const Value& output, std::string_view host) {
  const std::string protocol = to_text(member(output, "protocol"));
  if (protocol == "hls") return hls_url(id, output, host);
  if (protocol == "rtmp") return rtmp_url(output);
  if (protocol == "rtp" || protocol == "udp" || protocol == "tcp") {
    return fmt::format("{}://{}:{}", protocol, to_text(member(output, "hostname")), to_text(member(output, "port")));
  }
  if (protocol == "file") return join_path(path_part(output, "path"), path_part(output, "filename"));
  if (protocol == "http") {
    return fmt::format("{}://{}/stream/{}/{}", Config::HTTP_SCHEME, host, to_text(id),
                       quote(member(output, "filename")));
  }
  return std::nullopt;
}

}  // namespace

std::vector<std::string> StreamConfig::get_output_urls(std::string_view host,
                                                       const std::optional<std::set<std::string>>& protocols) const {
  std::vector<std::string> urls;
  const Value& outputs = get_json_conf("output");
  for (int index = 0; index < nb_outputs; ++index) {
    const Value& output = member(outputs, std::to_string(index));
    if (!output.is_object()) throw TypeError(fmt::format("there is no output {}", index));
    if (protocols && !protocols->contains(to_text(member(output, "protocol")))) continue;
    if (auto url = output_url(get_json_conf("id"), output, host)) urls.push_back(std::move(*url));
  }
  return urls;
}

}  // namespace weir
