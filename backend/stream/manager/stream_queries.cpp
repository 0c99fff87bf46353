#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/base/text_form.h"
#include "backend/collaborators/siblings.h"
#include "backend/stream/manager/stream_manager.h"

namespace weir {

Value StreamManager::stream_info(const Stream& stream, std::string_view host) {
  const std::unique_ptr<ProfileDescription> profile = siblings().profile_description(*stream.conf);
  Value record = make_mapping(14);
  record["id"] = stream.conf->get_json_conf("id");
  record["label"] = stream.conf->get_json_conf("label");
  record["hwaccel"] = profile->get_hwaccel();
  record["encoders"] = profile->get_encoders();
  record["bitrate"] = StreamStats::to_value(stream.stats.bitrate);
  record["quality"] = stream.stats.quality;
  record["fps"] = StreamStats::to_value(stream.stats.fps);
  record["time"] = stream.stats.time;
  record["speed"] = StreamStats::to_value(stream.stats.speed);
  record["status"] = stream.get_status();
  record["process_info"] = stream.get_process_info();
  record["url_info"] = stream.get_url_info(host);
  record["codec_info"] = stream.get_codec_info();
  record["client_info"] = stream.get_client_info();
  return record;
}

Value StreamManager::get_stream_info(std::string_view host, const Value& stream_id) {
  if (!stream_id.is_null()) {
    const std::shared_ptr<Stream> stream = get_stream(stream_id);
    return stream ? stream_info(*stream, host) : Value(false);
  }
  Value records = Value::array();
  for (const auto& [id, stream] : streams) records.push_back(stream_info(*stream, host));
  return records;
}

Value StreamManager::get_stream_info(std::string_view host) { return get_stream_info(host, nullptr); }

Value StreamManager::get_all_stream_stats(const Value& gpu) {
  Value counts = {{"total", 0}, {"starting", 0}, {"running", 0}, {"restarting", 0}, {"stopped", 0}};
  for (const auto& [id, stream] : streams) {
    if (!gpu.is_null() && stream->conf->get_json_conf("video.gpu") != to_text(gpu)) continue;
    const Value& status = stream->get_status();
    const bool known = status.is_string() && status != "total" && counts.contains(status.get_ref<const std::string&>());
    Value& count = counts[known ? status.get<std::string>() : "stopped"];
    count = count.get<long long>() + 1;
    counts["total"] = counts["total"].get<long long>() + 1;
  }
  if (!gpu.is_null()) counts["gpu"] = gpu;
  return counts;
}

Value StreamManager::get_stream_name_list() const {
  Value names = Value::array();
  for (const auto& [id, stream] : streams) names.push_back(stream->conf->get_json_conf("id"));
  return names;
}

std::vector<std::shared_ptr<Stream>> StreamManager::get_all_stream_by_profile_id(const Value& profile_id) const {
  std::vector<std::shared_ptr<Stream>> users;
  for (const auto& [id, stream] : streams) {
    if (stream->conf->get_json_conf("profile") == to_text(profile_id)) users.push_back(stream);
  }
  return users;
}

std::optional<std::vector<std::string>> StreamManager::get_stream_output_urls(
    const Value& stream_id, std::string_view host, const std::optional<std::set<std::string>>& protocols) {
  const std::shared_ptr<Stream> stream = get_stream(stream_id);
  if (!stream) return std::nullopt;
  return stream->conf->get_output_urls(host, protocols);
}

std::vector<std::string> StreamManager::get_stream_output_urls(const StreamConfig& conf, std::string_view host,
                                                               const std::optional<std::set<std::string>>& protocols) {
  return conf.get_output_urls(host, protocols);
}

}  // namespace weir
