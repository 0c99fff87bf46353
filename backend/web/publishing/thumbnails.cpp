#include "backend/web/publishing/thumbnails.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text.h"
#include "backend/collaborators/config.h"
#include "backend/platform/child_process.h"

namespace weir {

namespace {

constexpr double max_seconds = 5;
constexpr std::size_t max_picture_bytes = 512 * 1024;

// Only keyframes are decoded.
std::vector<std::string> make_command(const std::string& segment) {
  return {"nice",
          "-n",
          "10",
          Config::FFMPEG,
          "-hide_banner",
          "-nostdin",
          "-loglevel",
          "error",
          "-threads",
          "1",
          "-skip_frame",
          "nokey",
          "-protocol_whitelist",
          "file",
          "-f",
          "mpegts",
          "-i",
          "file:" + segment,
          "-map",
          "0:v:0",
          "-frames:v",
          "1",
          "-vf",
          "scale=320:-2,format=yuvj420p",
          "-threads",
          "1",
          "-q:v",
          "5",
          "-f",
          "mjpeg",
          "pipe:1"};
}

std::string describe_failure(const CommandResult& result) {
  if (result.timed_out) return "No picture could be made in time";
  if (result.standard_error.find("matches no streams") != std::string::npos) return "The stream has no video";
  const std::string_view text = trim(result.standard_error);
  return fmt::format("No picture could be made: {}", text.substr(text.rfind('\n') + 1).substr(0, 200));
}

bool has_hls_output(const Stream& stream) {
  return member(stream.conf->get_json_conf("output.0"), "protocol") == "hls";
}

// Of the rendition that takes the least to decode.
std::size_t find_smallest(const HlsCycle& cycle) {
  const auto smallest = std::ranges::min_element(cycle.renditions, {}, [](const auto& rendition) {
    return rendition.max_bitrate > 0 ? rendition.max_bitrate : std::numeric_limits<long long>::max();
  });
  return smallest == cycle.renditions.end() ? 0 : static_cast<std::size_t>(smallest - cycle.renditions.begin());
}

}  // namespace

void Thumbnails::add_to(Router& router) {
  router.add("GET", "/api/streams/{id}/thumbnail.jpg",
             [this](const Request&, const PathParameters& p) { return answer(p[0]); }, {.starts_something = true});
}

bool Thumbnails::has_picture(const Stream& stream) const {
  return stream.get_status() == "running" && !stream.ffmpeg->hls_list_sizes.empty() && windows_.find(stream.id);
}

std::string Thumbnails::address(const Stream& stream) {
  return fmt::format("/api/streams/{}/thumbnail.jpg", stream.id);
}

void Thumbnails::forget_unused() {
  std::erase_if(pictures_, [](const auto& entry) { return now() - entry.second->asked_at >= kept_for; });
}

Async<Response> Thumbnails::answer(std::string id) {
  const std::shared_ptr<Stream> stream = manager_.get_stream(id);
  if (!stream) throw HttpError(404, manager_.get_error_msg());
  if (!is_active(stream->get_status())) throw HttpError(404, "The stream is not running");
  if (!has_hls_output(*stream)) throw HttpError(404, "The stream has no HLS output, of which pictures are made");
  const std::shared_ptr<const Picture> shown = co_await picture(stream->id);
  if (!shown->failure.empty()) throw HttpError(404, shown->failure);
  Response response;
  response.headers.emplace_back("ETag", fmt::format("\"{:x}\"", std::hash<std::string>()(shown->jpeg)));
  response.headers.emplace_back("Cache-Control", fmt::format("private, max-age={}", shown_for.count()));
  response.content_type = "image/jpeg";
  response.body = shown->jpeg;
  co_return response;
}

// Who waits for the same picture gets the one that was made first.
Async<std::shared_ptr<const Thumbnails::Picture>> Thumbnails::picture(long long id) {
  std::shared_ptr<const Picture> fresh = find_fresh(id);
  if (fresh) co_return fresh;
  if (waiting_ >= max_waiting) throw HttpError(503, "Too many pictures are being made; try again later");
  struct Waiting {
    explicit Waiting(int& waiters) : count(waiters) { ++count; }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting() { --count; }
    int& count;
  };
  const Waiting waiting(waiting_);
  const auto permit = co_await making_.acquire();
  fresh = find_fresh(id);
  if (fresh) co_return fresh;
  const std::string segment = find_segment(id);
  if (segment.empty()) throw HttpError(404, "The stream has no segment yet");
  const auto before = pictures_.find(id);
  if (before != pictures_.end() && before->second->segment == segment) {
    before->second->made_at = now();
    co_return before->second;
  }
  auto made = std::make_shared<Picture>(co_await make(segment));
  pictures_[id] = made;
  co_return made;
}

std::shared_ptr<const Thumbnails::Picture> Thumbnails::find_fresh(long long id) {
  const auto found = pictures_.find(id);
  if (found == pictures_.end()) return nullptr;
  found->second->asked_at = now();
  return now() - found->second->made_at < shown_for ? found->second : nullptr;
}

Async<Thumbnails::Picture> Thumbnails::make(std::string segment) const {
  Picture picture;
  CommandResult result = co_await run_command(make_command(segment), max_seconds, max_picture_bytes);
  picture.segment = std::move(segment);
  picture.made_at = now();
  picture.asked_at = now();
  const bool is_jpeg = result.standard_output.starts_with("\xFF\xD8");
  if (!result.timed_out && result.exit_status == 0 && is_jpeg)
    picture.jpeg = std::move(result.standard_output);
  else
    picture.failure = describe_failure(result);
  co_return picture;
}

std::string Thumbnails::find_segment(long long id) const {
  const HlsWindow* window = windows_.find(id);
  if (!window) return {};
  const std::size_t rendition = find_smallest(window->cycle);
  const MediaPlaylist playlist = windows_.show(id, rendition);
  if (playlist.segments.empty()) return {};
  return HlsWindows::find_file(id, segment_name(rendition, playlist.segments.back().number));
}

}  // namespace weir
