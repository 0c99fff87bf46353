#include "backend/services/transcoder/encoding/video_arguments.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "backend/base/members.h"
#include "backend/services/transcoder/encoding/stream_map.h"
#include "backend/services/transcoder/encoding/video_filters.h"

namespace weir {

namespace {

constexpr double default_gop = 2;
constexpr long long max_bitrate = 1'000'000;
constexpr std::size_t max_renditions = 16;

/// A rendition's settings, on top of those of "video": what it does not set comes from there.
class Rendition {
 public:
  Rendition(const Settings& video, const Settings& own) : video_(video), own_(own) {}

  const Settings& where(std::string_view key) const { return own_.has(key) ? own_ : video_; }
  std::string word(std::string_view key, std::string_view fallback = {}) const {
    return where(key).word(key, fallback);
  }
  std::optional<long long> whole(std::string_view key, long long min, long long max) const {
    return where(key).whole(key, min, max);
  }
  long long audio_bitrate() const { return own_.whole("audio_bitrate", 1, 10'000).value_or(0); }
  bool has_own(std::string_view key) const { return own_.has(key); }

 private:
  Settings video_;
  Settings own_;
};

/// The renditions of a ladder in the order of their numbers; a single one, which sets nothing, when there is no ladder.
std::vector<Rendition> read_renditions(const Settings& video) {
  static const Value nothing;
  if (!video.has("renditions")) return {Rendition(video, Settings(nothing, video.name()))};
  const Value& list = video.raw("renditions");
  if (!list.is_object() && !list.is_array()) video.refuse_value("renditions", "is not a mapping or a list");
  std::vector<Rendition> renditions;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string number = std::to_string(i);
    const Value& own = list.is_array() ? list[i] : member(list, number);
    if (own.is_null()) video.refuse("renditions." + number, "missing; renditions are numbered from 0 without gaps");
    if (!own.is_object()) video.refuse("renditions." + number, "not a mapping");
    renditions.emplace_back(video, Settings(own, video.name() + ".renditions." + number));
  }
  if (renditions.size() > max_renditions) video.refuse("renditions", "more than 16 renditions");
  if (renditions.empty()) renditions.emplace_back(video, Settings(nothing, video.name()));
  return renditions;
}

/// Adds options of one video stream of the output.
class VideoOptions {
 public:
  VideoOptions(std::vector<std::string>& arguments, std::size_t index) : arguments_(arguments), index_(index) {}

  void add(std::string_view option, std::string value) {
    if (value.empty()) return;
    arguments_.push_back(fmt::format("-{}:v:{}", option, index_));
    arguments_.push_back(std::move(value));
  }
  void add(std::string_view option, std::optional<long long> value, std::string_view unit = {}) {
    if (value) add(option, fmt::format("{}{}", *value, unit));
  }

 private:
  std::vector<std::string>& arguments_;
  std::size_t index_;
};

/// Where keyframes have to lie.
struct Keyframes {
  double gop;           ///< seconds
  double segment_time;  ///< seconds of an HLS segment; 0 when there is none
};

// Whether the encoder ends where its average is above the bound of its variation.
bool refuses_low_bounds(const std::string& codec) {
  return codec.starts_with("mpeg") || codec.starts_with("msmpeg") || codec.starts_with("h263");
}

bool is_x26x(const std::string& codec) { return codec == "libx264" || codec == "libx265"; }

// Gives the limit in kbit/s, 0 when there is none.
long long add_rate(const Rendition& rendition, const std::string& codec, VideoOptions& options) {
  auto bitrate = rendition.whole("bitrate", 1, max_bitrate);
  auto max_rate = rendition.whole("max_bitrate", 1, max_bitrate);
  const auto crf = rendition.whole("crf", 0, 63);
  // A rendition with its own bitrate does not inherit max_bitrate.
  if (rendition.has_own("bitrate") && !rendition.has_own("max_bitrate")) max_rate.reset();
  if (crf && !rendition.has_own("bitrate")) {
    options.add("crf", crf);
    bitrate = max_rate;
    // These encoders take the bit rate as the limit of their constant quality.
    if (codec.starts_with("libvpx") || codec.starts_with("libaom")) {
      options.add("b", max_rate.value_or(get_default_bitrate(rendition.whole("height", 16, 8640).value_or(0))), "k");
      return max_rate.value_or(0);
    }
  } else {
    if (bitrate && max_rate && *max_rate < *bitrate && refuses_low_bounds(codec))
      rendition.where("max_bitrate")
          .refuse("max_bitrate", fmt::format("{} is below bitrate ({})", *max_rate, *bitrate));
    if (!bitrate)
      bitrate = std::min(get_default_bitrate(rendition.whole("height", 16, 8640).value_or(0)),
                         max_rate.value_or(max_bitrate));
    options.add("b", bitrate, "k");
    if (!max_rate) max_rate = std::max(*bitrate * 11 / 10, *bitrate);
  }
  if (!max_rate) return 0;
  auto buffer = rendition.whole("bufsize", 1, 10 * max_bitrate);
  if (rendition.has_own("bitrate") && !rendition.has_own("bufsize")) buffer.reset();
  options.add("maxrate", max_rate, "k");
  options.add("bufsize", buffer.value_or(2 * *bitrate), "k");
  return *max_rate;
}

/// When keyframes are forced. A stream that viewers wait for begins with a segment of its own, of a second.
std::string make_keyframe_rule(double interval, bool hls) {
  const std::string regular = fmt::format("gte(t,n_forced*{})", interval);
  if (!hls || interval <= first_segment_seconds) return "expr:" + regular;
  return fmt::format("expr:if(lt(n_forced,2),gte(t,n_forced*{}),gte(t,(n_forced-1)*{}))", first_segment_seconds,
                     interval);
}

void add_keyframes(const std::string& codec, const Keyframes& keyframes, VideoOptions& options) {
  const double interval = get_keyframe_interval(keyframes.gop, keyframes.segment_time);
  options.add("force_key_frames", make_keyframe_rule(interval, keyframes.segment_time > 0));
  // The encoder's own distance must never come before the forced ones; those at scene cuts would shift the renditions.
  options.add("g", std::to_string(static_cast<int>(std::ceil(interval * 120))));
  if (codec == "libx264") options.add("sc_threshold", "0");
  if (codec == "libx265") options.add("x265-params", "scenecut=0:open-gop=0:log-level=warning");
  if (codec.ends_with("_nvenc")) options.add("forced-idr", "1");
  if (codec.ends_with("_qsv")) options.add("forced_idr", "1");
}

// Gives the limit of the bit rate, as `add_rate` does.
long long add_codec(const Settings& video, const Rendition& rendition, const std::string& codec,
                    const Keyframes& keyframes, VideoOptions& options) {
  options.add("c", codec);
  // The tune turns off the lookahead that B-frames need: the encoder ends.
  if (codec == "libx265" && rendition.word("tune") == "zerolatency" &&
      rendition.whole("bframes", 0, 16).value_or(0) > 0)
    rendition.where("bframes").refuse("bframes", "libx265 has none with the tune zerolatency");
  options.add("preset", rendition.word("preset", is_x26x(codec) ? "veryfast" : ""));
  options.add("tune", rendition.word("tune"));
  options.add("profile", rendition.word("profile"));
  options.add("level", rendition.word("level"));
  options.add("bf", rendition.whole("bframes", 0, 16));
  options.add("refs", rendition.whole("refs", 1, 16));
  if (!codec.ends_with("_vaapi")) options.add("pix_fmt", video.word("pix_fmt", "yuv420p"));
  if (codec.ends_with("_nvenc")) options.add("gpu", video.whole("gpu", 0, 64));
  add_keyframes(codec, keyframes, options);
  return add_rate(rendition, codec, options);
}

std::string get_render_node(const Settings& video) {
  return fmt::format("/dev/dri/renderD{}", 128 + video.whole("gpu", 0, 64).value_or(0));
}

void append_devices(const Settings& video, const std::string& codec, std::vector<std::string>& arguments) {
  const std::string hwaccel = video.word("hwaccel", "none");
  const auto gpu = video.whole("gpu", 0, 64);
  if (hwaccel != "none") arguments.insert(arguments.end(), {"-hwaccel", hwaccel});
  if (hwaccel == "vaapi") arguments.insert(arguments.end(), {"-hwaccel_device", get_render_node(video)});
  if (hwaccel == "cuda" && gpu) arguments.insert(arguments.end(), {"-hwaccel_device", std::to_string(*gpu)});
  if (codec.ends_with("_vaapi")) {
    arguments.insert(arguments.end(),
                     {"-init_hw_device", "vaapi=encoder:" + get_render_node(video), "-filter_hw_device", "encoder"});
  }
}

std::string make_scaling(const Rendition& rendition, const std::string& codec) {
  VideoShape shape;
  shape.width = rendition.whole("width", 16, 15'360).value_or(0);
  shape.height = rendition.whole("height", 16, 8640).value_or(0);
  shape.fps = rendition.where("fps").number("fps", 0.1, 480).value_or(0);
  shape.upload = codec.ends_with("_vaapi");
  if (shape.width % 2 != 0) rendition.where("width").refuse_value("width", "is not even");
  if (shape.height % 2 != 0) rendition.where("height").refuse_value("height", "is not even");
  return make_shape_filters(shape);
}

/// One decode and one cleaning; every rendition scales their output.
std::string make_ladder(const Settings& video, const std::vector<std::string>& scalings) {
  const std::string cleaning = make_cleaning_filters(video);
  std::string graph =
      fmt::format("[{}]{}{}split={}", read_video_input(video), cleaning, cleaning.empty() ? "" : ",", scalings.size());
  for (std::size_t i = 0; i < scalings.size(); ++i) graph += fmt::format("[s{}]", i);
  for (std::size_t i = 0; i < scalings.size(); ++i) graph += fmt::format(";[s{}]{}[v{}]", i, scalings[i], i);
  return graph;
}

void append_copies(const std::string& map, const std::vector<std::string>& tags, VideoArguments& result) {
  for (std::size_t i = 0; i <= tags.size(); ++i) {
    VideoOptions options(result.arguments, i);
    result.arguments.insert(result.arguments.end(), {"-map", map});
    options.add("c", "copy");
    if (i < tags.size()) options.add("tag", tags[i]);
    ++result.streams;
  }
}

void append_encodes(const Settings& video, const std::vector<Rendition>& renditions, const std::string& codec,
                    const Keyframes& keyframes, VideoArguments& result) {
  std::vector<std::string> scalings;
  for (const Rendition& rendition : renditions) scalings.push_back(make_scaling(rendition, codec));
  const bool ladder = renditions.size() > 1;
  if (ladder) result.arguments = {"-filter_complex", make_ladder(video, scalings)};
  for (std::size_t i = 0; i < renditions.size(); ++i) {
    VideoOptions options(result.arguments, i);
    const std::string map = ladder ? fmt::format("[v{}]", i) : read_video_input(video) + "?";
    result.arguments.insert(result.arguments.end(), {"-map", map});
    if (!ladder) {
      const std::string cleaning = make_cleaning_filters(video);
      options.add("filter", cleaning.empty() ? scalings[i] : cleaning + "," + scalings[i]);
    }
    result.max_bitrates[i] = add_codec(video, renditions[i], codec, keyframes, options);
    ++result.streams;
  }
}

}  // namespace

double get_keyframe_interval(double gop, double segment_time) {
  if (segment_time <= 0) return gop;
  return segment_time / std::max(1.0, std::ceil(segment_time / gop - 1e-9));
}

long long get_default_bitrate(long long height) {
  if (height == 0) return 2500;
  static constexpr std::array<std::pair<int, int>, 4> defaults = {{{360, 800}, {480, 1400}, {720, 2800}, {1080, 5000}}};
  for (const auto& [lines, bitrate] : defaults) {
    if (height <= lines) return bitrate;
  }
  return 12'000;
}

VideoArguments make_video_arguments(const Settings& video, double segment_time,
                                    const std::vector<std::string>& copy_tags) {
  VideoArguments result;
  const std::string codec = video.word("codec", "libx264");
  const std::vector<Rendition> renditions = read_renditions(video);
  for (const Rendition& rendition : renditions) result.audio_bitrates.push_back(rendition.audio_bitrate());
  result.max_bitrates.resize(renditions.size());
  if ((codec == "none" || codec == "copy") && renditions.size() > 1) {
    video.refuse("renditions", fmt::format("the codec \"{}\" cannot make renditions", codec));
  }
  if (codec == "none") return result;
  if (codec == "copy") {
    append_copies(read_video_input(video) + "?", copy_tags, result);
    return result;
  }
  append_devices(video, codec, result.device_arguments);
  const double gop = video.number("gop", 0.04, 60).value_or(default_gop);
  append_encodes(video, renditions, codec, {gop, segment_time}, result);
  return result;
}

}  // namespace weir
