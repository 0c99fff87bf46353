#include "backend/services/transcoder/report/media_stream_info.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "backend/base/members.h"
#include "backend/base/text.h"
#include "backend/collaborators/utils.h"
#include "backend/services/transcoder/input/input_probe.h"
#include "backend/services/transcoder/settings.h"

namespace weir {

namespace {

constexpr long long bitrate_of_unknown_size = 1000;
constexpr double min_estimate = 64;

const char* get_type_name(char type) {
  switch (type) {
    case 'v':
      return "video";
    case 'a':
      return "audio";
    case 's':
      return "subtitle";
    case 't':
      return "attachment";
    default:
      return "data";
  }
}

/// The number after the last occurrence of a label, in kbit/s.
std::optional<long long> parse_bitrate_after(std::string_view line, std::string_view label, double unit) {
  const std::size_t position = line.rfind(label);
  if (position == std::string_view::npos) return std::nullopt;
  line.remove_prefix(position + label.size());
  long long number = 0;
  const auto result = std::from_chars(line.data(), line.data() + line.size(), number);
  const double bitrate = static_cast<double>(number) * unit;
  if (result.ec != std::errc() || number <= 0 || bitrate > max_figure) return std::nullopt;
  return std::llround(bitrate);
}

bool matches(const MediaStream& stream, const FFmpegStreamSpecifier& specifier, bool from_outputs) {
  if (from_outputs && stream.file != specifier.output) return false;
  return specifier.stream_type.empty() || specifier.stream_type == std::string(1, stream.type);
}

}  // namespace

long long estimate_bitrate(int width, int height, double fps) {
  if (width <= 0 || height <= 0) return bitrate_of_unknown_size;
  const double rate = fps > 0 ? fps : 25;
  return std::llround(std::clamp(0.07 * width * height * rate / 1000, min_estimate, max_figure));
}

void MediaStreamInfo::parse(std::string_view line) {
  if (line.find('\x1b') == std::string_view::npos) {
    if (!parse_heading(line)) parse_in_section(line);
    return;
  }
  const std::string plain = strip_console_codes(line);
  if (!parse_heading(plain)) parse_in_section(plain);
}

/// "Input #0, mpegts, from …", "Stream mapping:", "Output #0, tee, to …" at the start of a line.
bool MediaStreamInfo::parse_heading(std::string_view line) {
  const bool known = line.starts_with("Input #") || line.starts_with("Output #") || line.starts_with("Stream mapping:");
  if (!known) return false;
  in_side_data_ = false;
  stream_lines_ = {};
  section_ = Section::mapping;
  if (line.starts_with("Input #")) section_ = Section::input;
  if (line.starts_with("Output #")) {
    section_ = Section::output;
    // Titles of an input are printed before: what looked like an output in them gives way to the output itself.
    if (line.starts_with("Output #0,")) outputs_.clear();
  }
  return true;
}

void MediaStreamInfo::parse_in_section(std::string_view line) {
  switch (section_) {
    case Section::none:
      return;
    case Section::input:
      parse_duration(line);
      add(inputs_, line);
      return;
    case Section::mapping:
      if (const auto mapping = parse_mapping_line(line); mapping && mappings_.size() < max_streams) {
        mappings_.push_back(*mapping);
      }
      return;
    case Section::output:
      add(outputs_, line);
      parse_side_data(line);
      return;
  }
}

/// "  Duration: N/A, start: 0.000000, bitrate: 768 kb/s"
void MediaStreamInfo::parse_duration(std::string_view line) {
  if (line.starts_with("  Duration: ") && !input_bitrate_) input_bitrate_ = parse_bitrate_after(line, ", bitrate: ", 1);
}

/// "    Side data:", then "      cpb: bitrate max/min/avg: 1650000/0/1500000 buffer size: …".
void MediaStreamInfo::parse_side_data(std::string_view line) {
  static constexpr std::string_view label = "      cpb: bitrate max/min/avg: ";
  if (line.starts_with("    Side data:")) {
    in_side_data_ = true;
  } else if (!line.starts_with("      ")) {
    in_side_data_ = false;
  } else if (in_side_data_ && line.starts_with(label) && !outputs_.empty()) {
    line = line.substr(0, line.find(' ', label.size()));
    if (auto average = parse_bitrate_after(line, "/", 0.001)) outputs_.back().average = average;
  }
}

void MediaStreamInfo::add(std::vector<MediaStream>& streams, std::string_view line) {
  auto stream = stream_lines_.read(line);
  if (!stream || streams.size() >= max_streams) return;
  auto same = [&](const MediaStream& other) { return other.file == stream->file && other.index == stream->index; };
  if (std::ranges::none_of(streams, same)) streams.push_back(std::move(*stream));
}

std::vector<StreamDescription> MediaStreamInfo::get_stream_by_specifier(const FFmpegStreamSpecifier& specifier,
                                                                        bool from_outputs) const {
  int position = 0;
  for (const MediaStream& stream : from_outputs ? outputs_ : inputs_) {
    if (!matches(stream, specifier, from_outputs)) continue;
    if (position++ == specifier.stream_index) return {describe(stream, from_outputs)};
  }
  return {};
}

StreamDescription MediaStreamInfo::describe(const MediaStream& stream, bool from_outputs) const {
  StreamDescription description;
  description.stream_type = std::string(1, stream.type);
  description.fps = stream.fps;
  description.width = stream.width;
  description.height = stream.height;
  description.bitrate = stream.bitrate;
  description.bitrate_avg = stream.average ? stream.average : stream.bitrate;
  if (!from_outputs) return description;
  const MediaStream* source = find_source(stream);
  if (source != nullptr && !description.bitrate) description.bitrate = source->bitrate;
  if (stream.type != 'v' || description.bitrate_avg) return description;
  description.bitrate_avg = description.bitrate;
  if (source != nullptr && !description.bitrate_avg) description.bitrate_avg = input_bitrate_;
  if (!description.bitrate_avg) {
    description.bitrate_avg = estimate_bitrate(stream.width, stream.height, stream.fps);
  }
  return description;
}

/// The input stream that an output stream is a copy of; null for an encoded one.
const MediaStream* MediaStreamInfo::find_source(const MediaStream& output) const {
  for (const StreamMapping& mapping : mappings_) {
    if (mapping.output_index != output.index || !mapping.copied) continue;
    for (const MediaStream& input : inputs_) {
      if (input.file == mapping.input_file && input.index == mapping.input_index) return &input;
    }
  }
  return nullptr;
}

Value MediaStreamInfo::dump(const std::vector<MediaStream>& streams, bool from_outputs) const {
  Value list = Value::array();
  std::set<const MediaStream*> shown;
  for (const MediaStream& stream : streams) {
    // Several copies of one source differ by their codec tags alone: they are shown as one stream.
    const MediaStream* source = from_outputs ? find_source(stream) : nullptr;
    if (source != nullptr && !shown.insert(source).second) continue;
    const StreamDescription description = describe(stream, from_outputs);
    Value item = make_mapping(13);
    item["index"] = stream.index;
    item["type"] = get_type_name(stream.type);
    item["codec"] = stream.codec;
    auto put = [&item](const char* name, const auto& value, bool known) {
      if (known) item[name] = value;
    };
    put("profile", stream.profile, !stream.profile.empty());
    put("language", stream.language, !stream.language.empty());
    put("width", stream.width, stream.width > 0);
    put("height", stream.height, stream.height > 0);
    put("fps", stream.fps, stream.fps > 0 && stream.type == 'v');
    put("pix_fmt", stream.pix_fmt, !stream.pix_fmt.empty());
    put("sample_rate", stream.sample_rate, stream.sample_rate > 0);
    put("channels", stream.channels, !stream.channels.empty());
    put("bitrate", description.bitrate.value_or(0), description.bitrate.has_value());
    put("bitrate_avg", description.bitrate_avg.value_or(0), stream.type == 'v' && description.bitrate_avg);
    list.push_back(std::move(item));
  }
  return list;
}

Value MediaStreamInfo::dump_inputs() const { return dump(inputs_, false); }

Value MediaStreamInfo::dump_outputs() const { return dump(outputs_, true); }

std::optional<std::string> parse_probe_arguments(std::string_view arguments) {
  arguments = trim(arguments);
  if (!arguments.starts_with("-i ")) return std::nullopt;
  std::string_view url = trim(arguments.substr(3));
  if (url.size() >= 2 && url.front() == '\'' && url.back() == '\'') {
    url = url.substr(1, url.size() - 2);
  } else if (url.find_first_of(" \t'\"\\") != std::string_view::npos) {
    return std::nullopt;
  }
  if (trim(url).empty() || has_control_characters(url)) return std::nullopt;
  return std::string(url);
}

Async<bool> MediaStreamInfo::probe(std::string arguments) {
  const std::optional<std::string> url = parse_probe_arguments(arguments);
  if (!url) co_return false;
  const Value answer = co_await probe_url(*url);
  co_return member(answer, "error").is_null();
}

}  // namespace weir
