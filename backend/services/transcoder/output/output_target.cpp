#include "backend/services/transcoder/output/output_target.h"

#include <fmt/format.h>
#include <limits.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <filesystem>
#include <locale>
#include <nlohmann/json.hpp>

#include "backend/base/network_address.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/http_output.h"
#include "backend/platform/failure.h"
#include "backend/platform/files.h"
#include "backend/services/transcoder/output/rtmp_output.h"

namespace weir {

namespace {

/// A receiver that takes nothing for this long has stopped; it is opened again. Microseconds.
constexpr std::string_view write_timeout = "10000000";

/// An earlier recording gets its time and a number into its name: "rec.20261122-213005-1000.ts".
constexpr std::size_t max_recording_name = NAME_MAX - 21;

constexpr std::string_view not_a_host = "not a host name or address";
constexpr std::string_view not_a_port = "is not a port (1 to 65535)";
constexpr std::string_view not_a_path = "not a path without blanks";

/// The muxer for a file extension.
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

/// Does not show the value: it may hold a password.
[[noreturn]] void refuse_silently(const Settings& output, std::string_view key, std::string_view why) {
  output.refuse(key, output.has(key) ? why : "missing");
}

std::string read_host_and_port(const Settings& output) {
  const auto host = read_host(output.raw("hostname"));
  if (!host) refuse_silently(output, "hostname", not_a_host);
  const auto port = read_port(output.raw("port"));
  if (!port) output.refuse_value("port", not_a_port);
  return fmt::format("{}:{}", *host, *port);
}

OutputTarget read_rtmp(const Settings& output) {
  RtmpOutput url;
  if (!url.set_server(output.raw("server"))) refuse_silently(output, "server", not_a_host);
  if (!url.set_port(output.raw("port"))) output.refuse_value("port", not_a_port);
  if (!url.set_app(output.raw("app"))) refuse_silently(output, "app", not_a_path);
  if (!url.set_playpath(output.raw("playpath"))) refuse_silently(output, "playpath", not_a_path);
  if (!url.set_username(output.raw("username"))) output.refuse("username", "has a blank or one of / ? # : @");
  if (!url.set_password(output.raw("password"))) output.refuse("password", "has a blank or one of / ? #");
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
  if (!path) refuse_silently(output, "path", not_a_path);
  const std::string transport = output.word("transport", "tcp");
  if (transport != "tcp" && transport != "udp") output.refuse_value("transport", "is not tcp or udp");
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
  const std::string extension =
      boost::to_lower_copy(std::filesystem::path(filename).extension().string(), std::locale::classic());
  for (const auto& [known, format] : file_formats) {
    if (extension == known) return std::string(format);
  }
  output.refuse_value("filename", "has no known file extension; set \"format\"");
}

OutputTarget read_file(const Settings& output) {
  OutputTarget target;
  const std::string filename = std::filesystem::path(output.text("filename")).filename().string();
  if (filename.empty() || filename == "." || filename == "..") output.refuse_value("filename", "is not a file name");
  if (filename.size() > max_recording_name) {
    output.refuse("filename", fmt::format("longer than {} bytes", max_recording_name));
  }
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
  if (protocol == "hls") output.refuse("protocol", "only output 0 can be \"hls\"");
  output.refuse_value("protocol", "is not supported; use rtmp, rtsp, hls, http, srt, udp, rtp, tcp or file");
}

OutputTarget read_http_target(const Settings& output, const Value& mapping, const std::string& socket) {
  if (!output.has("filename")) output.refuse("filename", "missing; an \"http\" output is published under it");
  const std::string fault = find_http_output_fault(mapping);
  if (!fault.empty()) throw ValueError(fmt::format("{}.{}", output.name(), fault));
  if (socket.size() > max_socket_path) {
    throw ValueError(fmt::format("{}: the data directory's path is too long by {} bytes for the socket {}",
                                 output.name(), socket.size() - max_socket_path, socket));
  }
  OutputTarget target;
  target.format = get_http_format(mapping);
  target.address = "unix:" + socket;
  target.audio_only = target.format != "mpegts";
  target.queued = true;
  // Without the headers that a file begins with.
  if (target.format == "mp3") target.options = {{"id3v2_version", "0"}, {"write_xing", "0"}};
  return target;
}

}  // namespace weir
