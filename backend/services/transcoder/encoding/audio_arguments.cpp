#include "backend/services/transcoder/encoding/audio_arguments.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/services/transcoder/encoding/stream_map.h"
#include "backend/services/transcoder/filters/filter_check.h"

namespace weir {

namespace {

constexpr long long default_bitrate = 128;

std::string make_filters(const Settings& audio) {
  const std::string filters = read_filters(audio);
  // Audio that a live source has lost is filled with silence, or video and audio would drift apart.
  return filters.empty() ? "aresample=async=1" : filters + ",aresample=async=1";
}

void append_codec(const Settings& audio, const std::string& codec, long long bitrate, int index,
                  std::vector<std::string>& arguments) {
  auto add = [&](std::string_view option, std::string value) {
    arguments.push_back(fmt::format("-{}:a:{}", option, index));
    arguments.push_back(std::move(value));
  };
  add("c", codec);
  if (codec == "copy") return;
  add("b", fmt::format("{}k", bitrate));
  add("ac", std::to_string(audio.whole("channels", 1, 16).value_or(2)));
  if (auto rate = audio.whole("sample_rate", 4000, 192'000)) add("ar", std::to_string(*rate));
  add("filter", make_filters(audio));
}

/// A map that the input lacks is left out and would shift what follows: the copies come first, all of one map.
void append_copies(const std::string& map, const std::vector<std::string>& tags, AudioArguments& result) {
  for (const std::string& tag : tags) {
    const std::string index = std::to_string(result.streams++);
    result.arguments.insert(result.arguments.end(), {"-map", map, "-c:a:" + index, "copy", "-tag:a:" + index, tag});
  }
}

/// All copies have the same bit rate: that of their source.
long long choose_bitrate(const Settings& audio, const std::string& codec, long long wanted) {
  const long long common = audio.whole("bitrate", 1, 10'000).value_or(default_bitrate);
  return wanted == 0 || codec == "copy" ? common : wanted;
}

std::size_t find_or_add(std::vector<long long>& list, long long value) {
  const auto found = std::ranges::find(list, value);
  const auto position = static_cast<std::size_t>(found - list.begin());
  if (found == list.end()) list.push_back(value);
  return position;
}

void append_encodes(const Settings& audio, const std::string& codec, const std::vector<long long>& bitrates,
                    const std::vector<std::string>& maps, AudioArguments& result) {
  for (long long bitrate : bitrates) {
    for (const std::string& map : maps) {
      result.arguments.insert(result.arguments.end(), {"-map", map});
      append_codec(audio, codec, bitrate, result.streams++, result.arguments);
    }
  }
}

}  // namespace

AudioArguments make_audio_arguments(const Settings& audio, const std::vector<long long>& rendition_bitrates,
                                    const std::vector<std::string>& copy_tags) {
  AudioArguments result;
  result.renditions.resize(rendition_bitrates.size());
  result.bitrates.resize(rendition_bitrates.size());
  const std::string codec = audio.word("codec", "aac");
  if (codec == "none") return result;
  const std::vector<std::string> maps = read_stream_maps(audio, 'a');
  if (codec == "copy") append_copies(maps[0], copy_tags, result);
  std::vector<long long> encodes;
  for (std::size_t i = 0; i < rendition_bitrates.size(); ++i) {
    const std::size_t encode = find_or_add(encodes, choose_bitrate(audio, codec, rendition_bitrates[i]));
    if (codec != "copy") result.bitrates[i] = encodes[encode] * static_cast<long long>(maps.size());
    for (std::size_t m = 0; m < maps.size(); ++m) {
      result.renditions[i].push_back(result.streams + static_cast<int>(encode * maps.size() + m));
    }
  }
  if (encodes.size() > 1 && maps.size() > 1) {
    // A map may be absent from the input, and the streams of the encodes after it would be counted wrongly.
    audio.refuse("map", "only one stream can be mapped where renditions have their own audio_bitrate");
  }
  append_encodes(audio, codec, encodes, maps, result);
  return result;
}

}  // namespace weir
