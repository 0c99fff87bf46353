#include "backend/web/publishing/http_outputs.h"

#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "backend/base/log.h"
#include "backend/base/members.h"
#include "backend/base/numbers.h"
#include "backend/collaborators/config.h"
#include "backend/collaborators/http_output.h"
#include "backend/platform/failure.h"
#include "backend/platform/sleep.h"

namespace weir {

namespace {

std::string_view media_type(std::string_view format) {
  if (format == "mp3") return "audio/mpeg";
  return format == "adts" ? "audio/aac" : "video/mp2t";
}

Response for_players(Response response) {
  response.headers.emplace_back("Access-Control-Allow-Origin", "*");
  return response;
}

Response refuse_for_now(std::string_view reason) {
  Response response = for_players(error_response(503, reason));
  response.headers.emplace_back("Retry-After", "2");
  return response;
}

bool has_http_output(const JsonConf& conf, const std::string& filename) {
  for (const auto& [key, output] : numbered_members(conf.get_json_conf("output")))
    if (member(*output, "protocol") == "http" && member(*output, "filename") == filename) return true;
  return false;
}

}  // namespace

HttpOutputs::~HttpOutputs() {
  sweeper_.kill();
  for (const auto& [key, output] : outputs_) output->end();
}

void HttpOutputs::add_to(Router& router) {
  router.add("GET", "/stream/{id:number}/{filename}",
             [this](const Request& r, const PathParameters& p) { return immediate(answer(r, p)); },
             {.role = Role::nobody});
}

Response HttpOutputs::answer(const Request& request, const PathParameters& parameters) {
  const std::shared_ptr<Stream> stream = manager_.get_stream(parameters[0]);
  if (!stream) return for_players(error_response(404, "File not found"));
  const Key key{stream->id, parameters[1]};
  const auto found = outputs_.find(key);
  const bool known = found != outputs_.end() || has_http_output(*stream->conf, parameters[1]);
  if (!known || !is_on_air(stream->id)) return for_players(error_response(404, "File not found"));
  if (found == outputs_.end() || !found->second->has_begun()) return refuse_for_now("The stream is starting");
  Response response = for_players({});
  response.content_type = media_type(found->second->format());
  response.headers.emplace_back("Cache-Control", "no-store");
  // A proxy would keep back what comes, and write what a slow viewer does not take to its disk.
  response.headers.emplace_back("X-Accel-Buffering", "no");
  response.is_live = true;
  if (request.method != "GET") return response;
  response.live = admit(key, found->second, {request.client_address, request.client_port});
  if (!response.live) return refuse_for_now("Too many viewers");
  return response;
}

std::unique_ptr<HttpViewer> HttpOutputs::admit(const Key& key, const std::shared_ptr<HttpOutput>& output,
                                               HttpClient client) {
  std::unique_ptr<Viewers::Seat> seat = viewers_->admit_http(key.first, client.address);
  if (!seat) return nullptr;
  auto viewer = std::make_unique<HttpViewer>(output, std::move(client), std::move(seat));
  add_client(key, *viewer);
  return viewer;
}

void HttpOutputs::add_client(const Key& key, const HttpViewer& viewer) {
  manager_.add_stream_client_info(key.first, key.second, viewer.client().address, viewer.client().port, nullptr);
}

void HttpOutputs::prepare_run(const JsonConf& conf) {
  const Value& id = conf.get_json_conf("id");
  if (!id.is_number_integer()) return;
  const auto stream = id.get<long long>();
  end_other_outputs(stream, conf);
  for (const auto& [key, output] : numbered_members(conf.get_json_conf("output"))) {
    const Value& filename = member(*output, "filename");
    if (member(*output, "protocol") != "http" || !filename.is_string()) continue;
    try {
      const int index = static_cast<int>(parse_integer(key).value_or(0));
      prepare_output({stream, filename.get<std::string>()}, *output, get_http_socket(id, index));
    } catch (const std::system_error& failure) {
      log(LogLevel::error, "Web",
          fmt::format("Stream {}: output {} is not published: {}", stream, key, failure.what()));
    }
  }
}

// Viewers stay; they are clients of each run anew.
void HttpOutputs::prepare_output(const Key& key, const Value& output, const std::string& socket) {
  const std::string directory = std::filesystem::path(socket).parent_path();
  if (::chmod(directory.c_str(), 0700) != 0) throw_errno("chmod " + directory);
  HttpOutput& published = output_for(key, std::string(get_http_format(output)));
  published.listen(socket);
  for (const HttpViewer* viewer : published.viewers()) add_client(key, *viewer);
}

HttpOutput& HttpOutputs::output_for(const Key& key, std::string format) {
  std::shared_ptr<HttpOutput>& output = outputs_[key];
  if (output && output->format() == format) return *output;
  if (output) output->end();
  output = std::make_shared<HttpOutput>(std::move(format),
                                        [this, stream = key.first](pid_t pid) { return is_transcoder(stream, pid); });
  output->on_left = [this, key](const HttpViewer& viewer) {
    manager_.remove_stream_client_info(key.first, key.second, viewer.client().address, viewer.client().port);
  };
  if (sweeper_.dead()) sweeper_ = spawn("http outputs", end_silent_outputs());
  return *output;
}

void HttpOutputs::end_other_outputs(long long stream, const JsonConf& conf) {
  std::erase_if(outputs_, [&](const auto& entry) {
    const bool other = entry.first.first == stream && !has_http_output(conf, entry.first.second);
    if (other) entry.second->end();
    return other;
  });
}

// The transcoder leads a group of its own, and may have been started by a script in it.
bool HttpOutputs::is_transcoder(long long stream, pid_t process) const {
  const auto found = manager_.streams.find(stream);
  return found != manager_.streams.end() && found->second->proc && process > 0 &&
         ::getpgid(process) == found->second->proc->pid();
}

bool HttpOutputs::is_on_air(long long stream) const {
  const auto found = manager_.streams.find(stream);
  return found != manager_.streams.end() && is_active(found->second->get_status());
}

// One look a second; it ends with the last output.
Async<> HttpOutputs::end_silent_outputs() {
  while (!outputs_.empty()) {
    co_await sleep_to_next(std::chrono::seconds(1));
    const TimePoint latest = now() - to_duration(Config::HTTP_OUTPUT_HOLD);
    std::erase_if(outputs_, [&](const auto& entry) {
      const bool ended = !is_on_air(entry.first.first);
      if (ended) entry.second->end();
      return ended;
    });
    for (const auto& [key, output] : outputs_)
      if (output->silent_since() && *output->silent_since() <= latest) output->send_viewers_away();
  }
}

}  // namespace weir
