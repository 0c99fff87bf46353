#include "backend/web/stream_records.h"

#include <nlohmann/json.hpp>

#include "backend/base/text_form.h"
#include "backend/stream/manager/stream_manager.h"
#include "backend/web/masked_value.h"

namespace weir {

namespace {

/// A member that changes while the document and the cycle stay the same.
struct LiveMember {
  std::string_view name;
  Value (*read)(const Stream&);
};

// In the order of the record.
constexpr std::array<LiveMember, StreamRecords::live_members> live{{
    {"bitrate", [](const Stream& stream) { return StreamStats::to_value(stream.stats.bitrate); }},
    {"quality", [](const Stream& stream) { return Value(stream.stats.quality); }},
    {"fps", [](const Stream& stream) { return StreamStats::to_value(stream.stats.fps); }},
    {"time", [](const Stream& stream) { return Value(stream.stats.time); }},
    {"speed", [](const Stream& stream) { return StreamStats::to_value(stream.stats.speed); }},
    {"process_info", [](const Stream& stream) { return stream.get_process_info(); }},
    {"client_info", [](const Stream& stream) { return stream.get_client_info(); }},
}};

using Parts = StreamRecords::Parts;

// The record's text without its end, cut at the values of the live members.
Parts cut(const Value& record) {
  Parts parts;
  std::size_t at = 0;
  const char* separator = "{";
  for (const auto& [key, value] : record.items()) {
    parts[at] += separator + to_json(key) + ":";
    separator = ",";
    if (at < live.size() && key == live[at].name) {
      ++at;
    } else {
      parts[at] += to_json(value);
    }
  }
  return parts;
}

// False, with the text as it was, when a figure cannot be read.
bool fill(std::string& text, const Parts& parts, const Stream& stream) {
  const std::size_t begin = text.size();
  try {
    for (std::size_t i = 0; i < live.size(); ++i) {
      Value value = live[i].read(stream);
      mask_value(value);
      text += parts[i];
      text += to_json(value);
    }
  } catch (const std::exception&) {
    text.resize(begin);
    return false;
  }
  text += parts.back();
  return true;
}

Value module_record(const Stream& stream, const std::string& host) {
  Value record;
  try {
    record = StreamManager::stream_info(stream, host);
  } catch (const std::exception& failure) {
    record = {{"id", stream.id},
              {"label", stream.conf->get_json_conf("label")},
              {"status", stream.get_status()},
              {"error", failure.what()}};
  }
  mask_value(record);
  return record;
}

}  // namespace

void StreamRecords::add_member(RecordMember member) { added_.push_back(std::move(member)); }

void StreamRecords::forget(long long stream_id) {
  kept_.erase(stream_id);
  for (const RecordMember& member : added_) member.forget(stream_id);
}

void StreamRecords::append(std::string& text, const Stream& stream, const std::string& host) {
  append_module_record(text, stream, host);
  append_added_members(text, stream);
  text += '}';
}

void StreamRecords::append_added_members(std::string& text, const Stream& stream) const {
  for (const RecordMember& member : added_) {
    text += ",\"";
    text += member.name;
    text += "\":";
    const std::size_t begin = text.size();
    try {
      member.append(text, stream);
    } catch (const std::exception&) {
      text.resize(begin);
      text += "null";
    }
  }
}

// Without the bracket at the end.
void StreamRecords::append_module_record(std::string& text, const Stream& stream, const std::string& host) {
  const auto kept = kept_.find(stream.id);
  const bool valid =
      kept != kept_.end() && kept->second.revision == stream.conf->revision() && kept->second.host == host;
  if (valid && fill(text, kept->second.parts, stream)) return;
  const Value record = module_record(stream, host);
  // The input in use and the media streams are settled once a cycle runs; any other status is a change of the document.
  if (stream.get_status() == "running" && !record.contains("error")) {
    kept_[stream.id] = {stream.conf->revision(), host, cut(record)};
  } else {
    kept_.erase(stream.id);
  }
  text += to_json(record);
  text.pop_back();
}

}  // namespace weir
