#include "backend/web/hls_files.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <array>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/web/byte_range.h"

namespace weir {

namespace {

constexpr int client_timeout_seconds = 30;

struct MediaType {
  std::string_view suffix;
  std::string_view name;
};
constexpr std::array media_types{
    MediaType{".m3u8", "application/vnd.apple.mpegurl"},
    MediaType{".ts", "video/mp2t"},
    MediaType{".m4s", "video/iso.segment"},
    MediaType{".mp4", "video/mp4"},
    MediaType{".aac", "audio/aac"},
    MediaType{".vtt", "text/vtt; charset=utf-8"},
};

bool is_playlist(std::string_view name) { return name.ends_with(".m3u8"); }

// Empty for files that are not published, such as a playlist that is still being written.
std::string_view media_type(std::string_view name) {
  for (const MediaType& type : media_types)
    if (name.ends_with(type.suffix) && !name.starts_with('.')) return type.name;
  return {};
}

Response for_players(Response response) {
  response.headers.emplace_back("Access-Control-Allow-Origin", "*");
  response.headers.emplace_back("Access-Control-Expose-Headers", "Content-Length, Content-Range");
  return response;
}

Response refuse(int status, std::string_view message) { return for_players(error_response(status, message)); }

// Between two cycles a stream has no files; players that get 503 try again.
Response missing(const Stream& stream, const std::string& name) {
  const Value& status = stream.get_status();
  const bool is_expected = status == "starting" || status == "restarting" || (status == "running" && is_playlist(name));
  if (!is_expected) return refuse(404, "File not found");
  Response response = refuse(503, "The stream is starting");
  response.headers.emplace_back("Retry-After", "2");
  return response;
}

Response whole_or_part(FilePart file, const std::string& range_header) {
  Response response;
  response.headers.emplace_back("Accept-Ranges", "bytes");
  const std::uint64_t total = file.size;
  if (const auto range = parse_range(range_header, total)) {
    response.status = range->size > 0 ? 206 : 416;
    response.headers.emplace_back("Content-Range", range->size > 0 ? fmt::format("bytes {}-{}/{}", range->offset,
                                                                                 range->offset + range->size - 1, total)
                                                                   : fmt::format("bytes */{}", total));
    file.offset = range->offset;
    file.size = range->size;
  }
  response.file = std::move(file);
  return response;
}

Response preflight() {
  Response response = for_players(empty_response());
  response.headers.emplace_back("Access-Control-Allow-Methods", "GET, HEAD");
  response.headers.emplace_back("Access-Control-Allow-Headers", "Range");
  response.headers.emplace_back("Access-Control-Max-Age", "86400");
  return response;
}

std::optional<FilePart> open_file(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FilePart{std::move(file), 0, static_cast<std::uint64_t>(status.st_size)};
}

}  // namespace

void HlsFiles::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const std::string file = "/{id:number}/{file}";
  router.add("GET", file, [this](const Request& r, Parameters p) { return immediate(read(r, p)); });
  router.add("OPTIONS", file, [](const Request&, Parameters) { return immediate(preflight()); });
}

Response HlsFiles::read(const Request& request, const PathParameters& parameters) {
  const std::string& name = parameters[1];
  const std::shared_ptr<Stream> stream = manager_.get_stream(parameters[0]);
  const std::string_view type = media_type(name);
  if (!stream || type.empty()) return refuse(404, "File not found");
  // The name is one segment of a path and never leads out of the directory.
  std::optional<FilePart> file = open_file(get_hls_path(stream->id, name));
  if (!file) return missing(*stream, name);
  if (request.method == "GET") count_client(*stream, request);
  Response response = for_players(whole_or_part(std::move(*file), request.method == "GET" ? request.range : ""));
  response.content_type = type;
  // A segment never changes; a playlist changes with each segment.
  response.headers.emplace_back("Cache-Control", is_playlist(name) ? "no-cache" : "public, max-age=300");
  return response;
}

void HlsFiles::count_client(const Stream& stream, const Request& request) {
  const Value& output = stream.conf->get_json_conf("output.0");
  if (member(output, "protocol") != "hls") return;
  manager_.add_stream_client_info(stream.id, member(output, "playlist_name"), request.client_address, nullptr,
                                  client_timeout_seconds);
}

}  // namespace weir
