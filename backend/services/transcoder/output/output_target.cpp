#include "backend/services/transcoder/output/output_target.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/transcoder/output/network_address.h"
#include "backend/services/transcoder/output/rtmp_output.h"

namespace weir {

namespace {

/// A receiver that takes nothing for this long has stopped; it is opened again. Microseconds.
constexpr std::string_view write_timeout = "10000000";

/// The muxer for a file name's ending.
constexpr std::array<std::pair<std::string_view, std::string_view>, 17> file_formats = {{
    {".ts", "mpegts"},
    {".mts", "mpegts"},
    {".m2ts", "mpegts"},
    {".mp4", "mp4"},
    {".m4v", "mp4"},
    {".m4a", "mp4"},
    {".mov", "mov"},
    {".mkv", "matroska"},
    {".mka", "matroska"},
    {".webm", "webm"},
    {".flv", "flv"},
    {".mp3", "mp3"},
    {".aac", "adts"},
    {".ogg", "ogg"},
    {".oga", "ogg"},
    {".ogv", "ogg"},
    {".wav", "wav"},
}};

std::string read_host_and_port(const Settings& output) {
  const auto host = read_host(output.raw("hostname"));
  if (!host) output.refuse("hostname", "has to be a host name or an address");
  const auto port = read_port(output.raw("port"));
  if (!port) output.refuse("port", "has to be a number from 1 to 65535");
  return fmt::format("{}:{}", *host, *port);
}

OutputTarget read_rtmp(const Settings& output) {
  RtmpOutput url;
  if (!url.set_server(output.raw("server"))) output.refuse("server", "has to be a host name or an address");
  if (!url.set_port(output.raw("port"))) output.refuse("port", "has to be a number from 1 to 65535");
  if (!url.set_app(output.raw("app"))) output.refuse("app", "has to be a name without blanks");
  if (!url.set_playpath(output.raw("playpath"))) output.refuse("playpath", "has to be a name without blanks");
  if (!url.set_username(output.raw("username"))) output.refuse("username", "holds a blank or one of / ? # : @");
  if (!url.set_password(output.raw("password"))) output.refuse("password", "holds a blank or one of / ? #");
  OutputTarget target;
  target.format = "flv";
  target.family = TagFamily::flv;
  target.address = url.get_url();
  // Told apart here: the transcoder's own cut of the address takes "a/b" for an app and an instance of it.
  target.options = {{"rtmp_app", std::string(trim(output.text("app")))},
                    {"rtmp_playpath", std::string(trim(output.text("playpath")))},
                    {"rtmp_live", "live"},
                    {"rw_timeout", std::string(write_timeout)},
                    {"flvflags", "no_duration_filesize"}};
  return target;
}

OutputTarget read_rtsp(const Settings& output) {
  OutputTarget target;
  target.format = "rtsp";
  const auto path = read_url_path(output.raw("path"), true);
  if (!path) output.refuse("path", "has to be a path without blanks");
  const std::string transport = output.word("transport", "tcp");
  if (transport != "tcp" && transport != "udp") output.refuse("transport", "has to be tcp or udp");
  target.address = fmt::format("rtsp://{}/{}", read_host_and_port(output), *path);
  target.options = {{"rtsp_transport", transport}};
  return target;
}

/// udp, rtp and tcp: transport stream packets to a host and port.
OutputTarget read_transport_stream(const Settings& output, const std::string& protocol) {
  OutputTarget target;
  target.format = protocol == "rtp" ? "rtp_mpegts" : "mpegts";
  target.address = fmt::format("{}://{}", protocol, read_host_and_port(output));
  if (protocol == "tcp") {
    target.address += fmt::format("?timeout={}", write_timeout);
    return target;
  }
  // Seven packets of 188 bytes fill a datagram on usual networks.
  target.address += "?pkt_size=1316";
  if (auto ttl = output.whole("ttl", 1, 255)) target.address += fmt::format("&ttl={}", *ttl);
  return target;
}

std::string get_file_format(const Settings& output, const std::string& filename) {
  if (output.has("format")) return output.word("format");
  std::string ending = std::filesystem::path(filename).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  for (const auto& [known, format] : file_formats) {
    if (ending == known) return std::string(format);
  }
  output.refuse("filename", fmt::format("has an ending that tells no file type: \"{}\"; set \"format\"", filename));
}

OutputTarget read_file(const Settings& output) {
  OutputTarget target;
  const std::string filename = std::filesystem::path(output.text("filename")).filename().string();
  if (filename.empty() || filename == "." || filename == "..")
    output.refuse("filename", "has to be the name of a file");
  target.format = get_file_format(output, filename);
  const std::string directory = output.text("path", Config::UPLOAD_DIRECTORY);
  target.recording = join_path(std::filesystem::absolute(directory).lexically_normal().string(), filename);
  target.address = target.recording;
  target.carries_subtitles = true;
  target.reopens = false;
  if (target.format == "flv") target.family = TagFamily::flv;
  if (target.format == "mp4" || target.format == "mov") {
    target.family = TagFamily::mp4;
    // Fragments, each on disk as soon as it is whole: a killed transcoder leaves a file that can be read.
    target.options = {{"movflags", "+frag_keyframe+default_base_moof"},
                      {"min_frag_duration", "500000"},
                      {"frag_duration", "5000000"},
                      {"flush_packets", "1"}};
  }
  return target;
}

}  // namespace

OutputTarget read_output_target(const Settings& output) {
  const std::string protocol = output.text("protocol");
  if (protocol == "rtmp") return read_rtmp(output);
  if (protocol == "rtsp") return read_rtsp(output);
  if (protocol == "udp" || protocol == "rtp" || protocol == "tcp") return read_transport_stream(output, protocol);
  if (protocol == "file") return read_file(output);
  if (protocol == "hls") output.refuse("protocol", "can be \"hls\" for output 0 only");
  if (protocol == "http") {
    if (!output.has("filename")) output.refuse("filename", "is missing: an \"http\" output is published under it");
    output.refuse("protocol",
                  "\"http\" is not available yet: such outputs are fed through a unix socket in the stream's MMCB "
                  "directory, which nothing publishes to viewers so far");
  }
  if (protocol.empty()) output.refuse("protocol", "is missing");
  output.refuse("protocol",
                fmt::format("\"{}\" is not supported: use rtmp, rtsp, hls, udp, rtp, tcp or file", protocol));
}

}  // namespace weir
