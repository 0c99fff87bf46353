#include "backend/web/publishing/hls_routes.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>

#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/platform/sleep.h"
#include "backend/web/byte_range.h"

namespace weir {

namespace {

constexpr std::chrono::seconds cleaning_interval{5};
constexpr std::string_view playlist_type = "application/vnd.apple.mpegurl";
constexpr std::string_view segment_type = "video/mp2t";

Response for_players(Response response) {
  response.headers.emplace_back("Access-Control-Allow-Origin", "*");
  response.headers.emplace_back("Access-Control-Expose-Headers", "Content-Length, Content-Range");
  return response;
}

Response refuse(int status, std::string_view message) { return for_players(error_response(status, message)); }

// Players that get it try again.
Response refuse_for_now(std::string_view message) {
  Response response = refuse(503, message);
  response.headers.emplace_back("Retry-After", "2");
  return response;
}

Response playlist_response(const std::string& text) {
  Response response;
  response.content_type = playlist_type;
  response.body = text;
  response.headers.emplace_back("Cache-Control", "no-cache");
  return for_players(std::move(response));
}

Response refuse_range(std::uint64_t size) {
  Response response = refuse(416, "The segment has no such part");
  response.headers.emplace_back("Content-Range", fmt::format("bytes */{}", size));
  return response;
}

Response whole_or_part(FilePart file, const std::optional<ByteRange>& range) {
  Response response;
  response.headers.emplace_back("Accept-Ranges", "bytes");
  if (range) {
    response.status = 206;
    response.headers.emplace_back(
        "Content-Range", fmt::format("bytes {}-{}/{}", range->offset, range->offset + range->size - 1, file.size));
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

bool has_hls_output(const Stream& stream) {
  return member(stream.conf->get_json_conf("output.0"), "protocol") == "hls";
}

// A running cycle keeps its output though the document has lost it.
bool is_publishing(const Stream& stream) {
  return is_active(stream.get_status()) && (has_hls_output(stream) || !stream.ffmpeg->hls_list_sizes.empty());
}

// The names of the output's playlist: as the document announces it, and as the running cycle has it.
std::array<Value, 2> playlist_names(const Stream& stream) {
  const auto& of_cycle = stream.ffmpeg->hls_master_playlist;
  return {stream.conf->get_json_conf("output.0.playlist_name"), of_cycle ? Value(*of_cycle) : Value()};
}

}  // namespace

void HlsRoutes::add_to(Router& router) {
  using Parameters = const PathParameters&;
  const std::string file = "/{id:number}/{file}";
  const RouteRules open{.role = Role::nobody};
  router.add("GET", file, [this](const Request& r, Parameters p) { return answer(p[0], p[1], r); }, open);
  router.add("OPTIONS", file, [](const Request&, Parameters) { return immediate(preflight()); }, open);
}

Async<Response> HlsRoutes::answer(std::string id, std::string name, Request request) {
  const Publication publication = find(id);
  const bool is_playlist = name.ends_with(".m3u8");
  const bool is_file = is_playlist || (name.ends_with(".ts") && !name.starts_with('.'));
  if (!is_file || !windows_.is_published(publication.id, publication.active)) {
    co_return refuse(404, "File not found");
  }
  if (request.method == "GET" && publication.active && !admit(publication, request)) {
    co_return refuse_for_now("Too many viewers");
  }
  if (!is_playlist) co_return read_segment(publication, name, request);
  Response playlist = co_await read_playlist(publication, name);
  co_return playlist;
}

HlsRoutes::Publication HlsRoutes::find(const std::string& id) {
  std::shared_ptr<Stream> stream = manager_.get_stream(id);
  const bool active = stream && is_publishing(*stream);
  const long long number = stream ? stream->id : parse_integer(id).value_or(-1);
  return {number, std::move(stream), active};
}

Async<Response> HlsRoutes::read_playlist(Publication publication, std::string name) {
  HlsPublisher::Text text;
  if (const auto rendition = parse_media_playlist_name(name)) {
    text = publisher_.media_playlist(publication.id, *rendition);
  } else if (is_master(publication, name)) {
    text = co_await publisher_.master_playlist(publication.id);
  } else {
    co_return refuse(404, "File not found");
  }
  if (text) co_return playlist_response(*text);
  if (!publication.active) co_return refuse(404, "File not found");
  co_return refuse_for_now("The stream is starting");
}

Response HlsRoutes::read_segment(const Publication& publication, const std::string& name, const Request& request) {
  // The name is one segment of a path and never leads out of the directory.
  std::optional<FilePart> file = open_file(HlsWindows::find_file(publication.id, name));
  if (!file) return refuse(404, "File not found");
  const auto range = parse_range(request.method == "GET" ? request.range : "", file->size);
  if (range && range->size == 0) return refuse_range(file->size);
  Response response = for_players(whole_or_part(std::move(*file), range));
  response.content_type = segment_type;
  response.headers.emplace_back("Cache-Control", "public, max-age=300");
  return response;
}

// Of a stream that is gone no name is known any more.
bool HlsRoutes::is_master(const Publication& publication, const std::string& name) {
  if (!publication.stream) return true;
  const auto names = playlist_names(*publication.stream);
  return names[0] == name || names[1] == name;
}

// False when there are too many viewers.
bool HlsRoutes::admit(const Publication& publication, const Request& request) {
  const HlsWindow* window = windows_.find(publication.id);
  const std::chrono::seconds timeout{3 * std::max(window ? window->target_duration : 0, 4)};
  if (!viewers_->admit_hls(publication.id, request.client_address, timeout)) return false;
  const auto names = playlist_names(*publication.stream);
  for (const Value& name : names) {
    // The cycle tracks one of them.
    if (&name != names.data() && name == names[0]) continue;
    manager_.add_stream_client_info(publication.id, name, request.client_address, nullptr, timeout.count());
  }
  return true;
}

Async<> HlsRoutes::clean_up(std::function<void()> also) {
  for (;;) {
    co_await sleep_to_next(cleaning_interval);
    windows_.sweep([this](long long id) {
      const std::shared_ptr<Stream> stream = manager_.get_stream(id);
      if (!stream) return HlsWindows::StreamState::deleted;
      return is_publishing(*stream) ? HlsWindows::StreamState::active : HlsWindows::StreamState::stopped;
    });
    publisher_.forget_unused();
    viewers_->forget_gone();
    also();
  }
}

}  // namespace weir
